// Recorded motions.

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include "base/file_content.h"
#include "motion/motion.h"

namespace phone {
namespace {

struct Column {
    std::string_view name;
    double limit;  // either way: far beyond what a hand can do, so what lies further is in another unit
};
constexpr std::array<Column, 7> kColumns = {{{"time_s", 1e10},
                                             {"gyro_x_rad_s", 100},
                                             {"gyro_y_rad_s", 100},
                                             {"gyro_z_rad_s", 100},
                                             {"acc_x_m_s2", 1000},
                                             {"acc_y_m_s2", 1000},
                                             {"acc_z_m_s2", 1000}}};

std::vector<std::string_view> split(std::string_view line) {
    std::vector<std::string_view> cells;
    for (size_t begin = 0;;) {
        const size_t comma = line.find(',', begin);
        cells.push_back(trimmed(line.substr(begin, comma - begin)));
        if (comma == std::string_view::npos) return cells;
        begin = comma + 1;
    }
}

class Reader {
  public:
    explicit Reader(const std::filesystem::path& file) : mFile(file.string()) {}

    std::vector<MotionSample> read() {
        std::istringstream in(readTextFile(mFile));
        for (std::string line; std::getline(in, line);) {
            ++mLine;
            const std::string_view text = trimmed(line);
            if (!text.empty() && text.front() != '#') takeLine(text);
        }
        if (mSamples.size() < 2) {
            mLine = std::max<size_t>(mLine, 1);  // of an empty file
            fail(fmt::format("the file ends after {} of at least 2 samples", mSamples.size()));
        }
        return std::move(mSamples);
    }

  private:
    [[noreturn]] void fail(const std::string& reason) const {
        throw std::runtime_error(fmt::format("{}:{}: {}", mFile, mLine, reason));
    }

    void takeLine(std::string_view text) {
        const std::vector<std::string_view> cells = split(text);
        if (cells.size() != kColumns.size()) {
            std::vector<std::string_view> names(kColumns.size());
            std::ranges::transform(kColumns, names.begin(), &Column::name);
            fail(fmt::format("{} columns, expected {}: {}", cells.size(), names.size(),
                             fmt::join(names, ",")));
        }
        const bool first = !mSeenContent;
        mSeenContent = true;
        if (first && std::isalpha(static_cast<unsigned char>(text.front())) != 0) {
            checkNames(cells);
            return;
        }
        takeSample(cells);
    }

    void checkNames(const std::vector<std::string_view>& cells) const {
        for (size_t i = 0; i < cells.size(); ++i) {
            if (cells[i] == kColumns[i].name) continue;
            fail(fmt::format("column {} is \"{}\", expected \"{}\"", i + 1, cells[i], kColumns[i].name));
        }
    }

    void takeSample(const std::vector<std::string_view>& cells) {
        std::array<double, kColumns.size()> values{};
        for (size_t i = 0; i < values.size(); ++i) values[i] = number(cells[i], kColumns[i]);
        if (!mSamples.empty() && values[0] <= mSamples.back().timeS) {
            fail(fmt::format("time_s {} is not after {}, that of the sample before", values[0],
                             mSamples.back().timeS));
        }
        mSamples.push_back({values[0], {values[1], values[2], values[3]}, {values[4], values[5], values[6]}});
    }

    double number(std::string_view cell, const Column& column) const {
        double value = 0;
        const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
        // A NaN compares with nothing.
        if (error != std::errc() || end != cell.data() + cell.size() || !(std::abs(value) <= column.limit)) {
            fail(fmt::format("{} is \"{}\", expected a number from {} to {}", column.name, cell,
                             -column.limit, column.limit));
        }
        return value;
    }

    const std::string mFile;
    size_t mLine = 0;
    bool mSeenContent = false;
    std::vector<MotionSample> mSamples;
};

double between(double from, double to, double part) {
    return from + (to - from) * part;
}

class CsvMotion : public MotionSource {
  public:
    CsvMotion(std::string name, std::vector<MotionSample> samples)
        : mName(std::move(name)), mSamples(std::move(samples)) {
        const double startS = mSamples.front().timeS;
        for (MotionSample& sample : mSamples) sample.timeS -= startS;
        // The way from the last sample back to the first takes one mean period.
        const double lengthS = mSamples.back().timeS;
        mDurationS = lengthS + lengthS / static_cast<double>(mSamples.size() - 1);
    }

    std::string describe() const override {
        return fmt::format("{}: {:.1f} s at {:.1f} Hz", mName, mDurationS,
                           static_cast<double>(mSamples.size()) / mDurationS);
    }

    MotionSample at(double timeS) const override {
        const double phaseS = timeS - std::floor(timeS / mDurationS) * mDurationS;
        const auto after =
            std::upper_bound(mSamples.begin(), mSamples.end(), phaseS,
                             [](double time, const MotionSample& s) { return time < s.timeS; });
        const MotionSample& from = after == mSamples.begin() ? mSamples.front() : *(after - 1);
        const MotionSample& to = after == mSamples.end() ? mSamples.front() : *after;
        const double endS = after == mSamples.end() ? mDurationS : to.timeS;
        const double part = (phaseS - from.timeS) / (endS - from.timeS);

        MotionSample sample;
        sample.timeS = timeS;
        for (size_t i = 0; i < 3; ++i) {
            sample.gyroRadS[i] = between(from.gyroRadS[i], to.gyroRadS[i], part);
            sample.accMS2[i] = between(from.accMS2[i], to.accMS2[i], part);
        }
        return sample;
    }

  private:
    const std::string mName;
    std::vector<MotionSample> mSamples;
    double mDurationS = 0;
};

}  // namespace

std::shared_ptr<const MotionSource> loadMotion(const std::filesystem::path& file) {
    return std::make_shared<CsvMotion>(file.filename().string(), Reader(file).read());
}

}  // namespace phone
