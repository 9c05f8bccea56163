// Recorded motions.

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "base/file_content.h"
#include "motion/motion.h"

namespace phone {
namespace {

constexpr size_t kColumns = 7;
constexpr std::array<std::string_view, kColumns> kNames = {
    "time_s", "gyro_x_rad_s", "gyro_y_rad_s", "gyro_z_rad_s", "acc_x_m_s2", "acc_y_m_s2", "acc_z_m_s2"};

std::vector<std::string_view> split(std::string_view line) {
    std::vector<std::string_view> cells;
    for (size_t begin = 0;;) {
        const size_t comma = line.find(',', begin);
        cells.push_back(trimmed(line.substr(begin, comma - begin)));
        if (comma == std::string_view::npos) return cells;
        begin = comma + 1;
    }
}

std::string counted(size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
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
            fail("the file ends after " + counted(mSamples.size(), "sample") + "; a motion needs at least 2");
        }
        return std::move(mSamples);
    }

  private:
    [[noreturn]] void fail(const std::string& reason) const {
        throw std::runtime_error(mFile + ":" + std::to_string(mLine) + ": " + reason);
    }

    void takeLine(std::string_view text) {
        const std::vector<std::string_view> cells = split(text);
        if (cells.size() != kColumns) {
            fail(counted(cells.size(), "column") +
                 ", expected 7: time_s, gyro x, y, z in rad/s, "
                 "acceleration x, y, z in m/s^2");
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
        for (size_t i = 0; i < kColumns; ++i) {
            if (cells[i] == kNames[i]) continue;
            fail("column " + std::to_string(i + 1) + " is \"" + std::string(cells[i]) + "\", expected \"" +
                 std::string(kNames[i]) + "\"");
        }
    }

    void takeSample(const std::vector<std::string_view>& cells) {
        std::array<double, kColumns> values{};
        for (size_t i = 0; i < kColumns; ++i) values[i] = number(cells[i], kNames[i]);
        if (!mSamples.empty() && values[0] <= mSamples.back().timeS) {
            fail("time_s " + std::string(cells[0]) + " is not after that of the sample before");
        }
        mSamples.push_back({values[0], {values[1], values[2], values[3]}, {values[4], values[5], values[6]}});
    }

    double number(std::string_view cell, std::string_view name) const {
        double value = 0;
        const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
        if (error != std::errc() || end != cell.data() + cell.size() || !std::isfinite(value)) {
            fail(std::string(name) + " is \"" + std::string(cell) + "\", expected a number");
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
        char text[64];
        std::snprintf(text, sizeof text, ": %.1f s at %.1f Hz", mDurationS,
                      static_cast<double>(mSamples.size()) / mDurationS);
        return mName + text;
    }
    double durationS() const override { return mDurationS; }

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
