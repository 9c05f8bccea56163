#include "recording/row_order.h"

#include <algorithm>

namespace oisctl {

namespace {

// So many rows in a row may be strays; more are a stretch of their own.
constexpr size_t kMostStrays = 8;

class Orderer {
  public:
    Orderer(const std::vector<int64_t>& timesUs, const std::vector<size_t>& headers)
        : mTimesUs(timesUs), mHeaders(headers), mFates(timesUs.size(), RowFate::kKept) {}

    std::vector<RowFate> order() {
        for (size_t row = 0; row < mTimesUs.size(); ++row) {
            if (mKept.empty() || std::ranges::binary_search(mHeaders, row)) {
                begin(row);
            } else if (mTimesUs[row] > mTimesUs[mKept.back()]) {
                mKept.push_back(row);
            } else {
                placeEarlier(row);
            }
        }
        return std::move(mFates);
    }

  private:
    void begin(size_t row) {
        mFates[row] = RowFate::kBegins;
        mKept.assign(1, row);
    }

    // A row whose time does not go on.
    void placeEarlier(size_t row) {
        const size_t ahead = keptFrom(row);
        const size_t behind = rowsBehind(row);
        const bool known = mTimesUs[mKept[mKept.size() - ahead]] == mTimesUs[row];
        const bool someBefore = ahead < mKept.size() || ahead == 1;
        if (ahead <= kMostStrays && behind > ahead && someBefore) {
            dropAhead(ahead, row);
        } else if (known) {
            mFates[row] = RowFate::kRepeated;
        } else if (behind > kMostStrays || (behind > 1 && row + behind == mTimesUs.size())) {
            begin(row);
        } else {
            mFates[row] = RowFate::kOutOfOrder;
        }
    }

    // How many of the last kept rows are not before this one; no more than are worth counting.
    size_t keptFrom(size_t row) const {
        size_t count = 1;
        while (count <= kMostStrays && count < mKept.size() &&
               mTimesUs[mKept[mKept.size() - 1 - count]] >= mTimesUs[row])
            ++count;
        return count;
    }

    // How many rows from this one on stay before the last kept one, likewise.
    size_t rowsBehind(size_t row) const {
        const int64_t lastUs = mTimesUs[mKept.back()];
        size_t count = 0;
        while (count <= kMostStrays && row + count < mTimesUs.size() && mTimesUs[row + count] < lastUs)
            ++count;
        return count;
    }

    // The rows before ran ahead; the others go on from where those were.
    void dropAhead(size_t ahead, size_t row) {
        for (size_t i = 0; i < ahead; ++i) {
            mFates[mKept.back()] = RowFate::kOutOfOrder;
            mKept.pop_back();
        }
        if (mKept.empty()) return begin(row);
        mKept.push_back(row);
    }

    const std::vector<int64_t>& mTimesUs;
    const std::vector<size_t>& mHeaders;
    std::vector<RowFate> mFates;
    std::vector<size_t> mKept;  // of the present stretch
};

}  // namespace

std::vector<RowFate> rowFates(const std::vector<int64_t>& timesUs, const std::vector<size_t>& headers) {
    return Orderer(timesUs, headers).order();
}

}  // namespace oisctl
