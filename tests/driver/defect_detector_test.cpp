// The actuator defect detector.

#include <limits>

#include "driver/dump_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::DumpTest;
using Keys = std::vector<std::string>;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kNever = 1e30F;
constexpr int32_t kMost = std::numeric_limits<int32_t>::max();

struct Point {
    float x;
    float y;
};
struct Hall {
    int32_t x;
    int32_t y;
};

class DefectDetector : public DumpTest {
  protected:
    bool logged(const std::string& beginning) {
        return std::ranges::any_of(
            messages(), [&](const std::string& message) { return message.starts_with(beginning); });
    }
    // Commands and sleeps, in order: "SET_MODE", "sleep 2000".
    std::vector<std::string> course() {
        std::vector<std::string> lines;
        for (const phone::Event& event : phone.trace().events()) {
            if (event.kind == phone::EventKind::kSubDevice || event.kind == phone::EventKind::kHub) {
                lines.push_back(event.name);
            } else if (event.kind == phone::EventKind::kSleep) {
                lines.push_back("sleep " + phone::toText(event.fields.at(0)));
            }
        }
        return lines;
    }

    // A module that detects, with the hall centre at 100, -100.
    static phone::ModuleDescription module(const std::vector<Point>& coordinates, float maximum, float sum) {
        phone::ModuleDescription module = dumpModule();
        ois::OisCustInfo& info = module.custInfo;
        info.actuatorDetectSupport = 1;
        info.coordinateNum = static_cast<uint16_t>(coordinates.size());
        for (size_t i = 0; i < coordinates.size(); ++i) {
            info.coordinateX[i] = coordinates[i].x;
            info.coordinateY[i] = coordinates[i].y;
        }
        info.max_error_threshold = maximum;
        info.max_sum_error_threshold = sum;
        module.hallInfo.centerX = 100;
        module.hallInfo.centerY = -100;
        return module;
    }
    // The hall sensors read these, one after the other, whatever the target.
    void answerHall(std::vector<Hall> readings) {
        onCommand("GET_HALL", [this, readings = std::move(readings)](auto input) {
            std::vector<uint8_t> record(input.begin(), input.end());
            std::memcpy(&record[16], &readings.at(mReads++), sizeof(Hall));
            return answer(record);
        });
        mReads = 0;
    }
    // Of that coordinate, from the record that was sent for it.
    Hall target(size_t coordinate) {
        Hall found{};
        std::memcpy(&found, &sent().at(2 * coordinate).bytes[8], sizeof found);
        return found;
    }

    size_t mReads = 0;
};

TEST_F(DefectDetector, LimitsTripAtEquality) {
    struct Case {
        const char* what;
        std::vector<Point> coordinates;
        std::vector<Hall> halls;
        float maximum;
        float sum;
        int32_t result;
        int32_t error;  // -7: not written
    };
    const Case cases[] = {
        {"no coordinates", {}, {}, 0, 0, 0, -7},
        {"exactly the single limit", {{10, 0}}, {{105, -100}}, 5, kNever, -1, 5},
        {"just below it", {{10, 0}}, {{105, -100}}, 5.001F, kNever, 0, -7},
        {"on y, either direction", {{0, 10}}, {{100, -84}}, 6, kNever, -1, 6},
        {"the larger axis is kept, truncated", {{0.75F, 2}}, {{97, -107}}, 3, kNever, -1, 9},
        {"the sum", {{0, 0}, {0, 0}, {0, 0}}, {{102, -100}, {98, -100}, {102, -100}}, 5, 6, -2, 6},
        {"the sum of one axis only", {{0, 0}, {0, 0}}, {{102, -100}, {100, -102}}, 5, 4, 0, -7},
        {"the larger sum, truncated", {{0.5F, 0}, {0.25F, 0}}, {{102, -99}, {102, -98}}, 5, 3, -2, 3},
        {"no number never trips", {{kNaN, 0}, {3, 0}}, {{0, -100}, {100, -100}}, 5, 3, 0, -7},
        {"an infinite error saturates", {{kInfinity, 0}}, {{0, -100}}, 5, 5, -1, kMost},
        {"a limit that is no number", {{9, 9}}, {{100, -100}}, kNaN, kNaN, 0, -7},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        open(module(c.coordinates, c.maximum, c.sum));
        answerHall(c.halls);
        driver.mDefectDetectDone = 9;
        driver.mActuatorDefectError = -7;
        EXPECT_EQ(driver.DetectActutorDefect(), c.result);
        EXPECT_EQ(driver.mDefectDetectDone, c.result < 0 ? 1 : 0);
        EXPECT_EQ(driver.mActuatorDefectError, c.error);
        EXPECT_EQ(mReads, c.halls.size());  // stops where it trips
        EXPECT_EQ(sent().size(), 2 * c.halls.size());
        decide = nullptr;
        driver.Uninit();
    }
}

TEST_F(DefectDetector, EachCoordinateIsHeldThenRead) {
    open(module({{-0.6F, 0.6F}, {1e20F, -1e20F}, {kNaN, 50.5F}}, kInfinity, kInfinity));
    answerHall({{7, 8}, {-1, -2}, {3, 4}});
    driver.mFixMode = {5, 6, 0, 0, 0x11, 0x22};
    forget();
    EXPECT_EQ(driver.DetectActutorDefect(), 0);
    const Keys one = {"SET_FIX_MODE", "sleep 40000", "GET_HALL"};
    Keys expected;
    for (int i = 0; i < 3; ++i) expected.insert(expected.end(), one.begin(), one.end());
    EXPECT_EQ(course(), expected);
    // 99.4 and -99.4 become 99 and -99; the rest of the record is as it was.
    EXPECT_EQ(sent()[0].bytes,
              bytes("05 00 00 00 06 00 00 00 63 00 00 00 9d ff ff ff 11 00 00 00 22 00 00 00"));
    EXPECT_EQ(sent()[1].bytes, sent()[0].bytes);
    EXPECT_EQ(sent()[2].bytes,
              bytes("05 00 00 00 06 00 00 00 ff ff ff 7f 00 00 00 80 07 00 00 00 08 00 00 00"));
    EXPECT_EQ(sent()[4].bytes,
              bytes("05 00 00 00 06 00 00 00 00 00 00 00 cf ff ff ff ff ff ff ff fe ff ff ff"));
}

TEST_F(DefectDetector, MessagesKeepTheirSlots) {
    open(module({{2, 0.25F}, {2, 0}}, 50, 6));
    answerHall({{98, -100}, {99, -100}});
    EXPECT_EQ(driver.DetectActutorDefect(), -2);
    for (const char* beginning :
         {"[DetectActutorDefect] mOisFeature.coordinateNum (2)\n",
          "[DetectActutorDefect] index (1), target_x (2.000000), target_y (0.000000), hall_x (99), "
          "hall_y (-100), error_x (3.000000), error_y (",
          // The single limit under the sum's label.
          "[DetectActutorDefect] trigger_max_sum_error, max_sum_error_threshold (50.000000), "
          "sum_error_x (7.000000), sum_error_y ("})
        EXPECT_TRUE(logged(beginning)) << beginning;
    driver.mOisCustInfo.max_error_threshold = 4;
    answerHall({{98, -100}});
    EXPECT_EQ(driver.DetectActutorDefect(), -1);
    EXPECT_TRUE(
        logged("[DetectActutorDefect] trigger_max_error, max_error_threshold (4.000000), "
               "error_x (4.000000), error_y ("));
}

TEST_F(DefectDetector, TheResultIsThatOfTheLastReadBack) {
    open(module({{0, 0}, {0, 0}}, kNever, kNever));
    fault("SET_FIX_MODE:errno=EIO");  // never matters
    fault("GET_HALL@1:errno=EIO");
    fault("GET_HALL@4:result=3");
    EXPECT_EQ(driver.DetectActutorDefect(), 0);
    EXPECT_EQ(driver.DetectActutorDefect(), 3);
}

TEST_F(DefectDetector, AControllerThatDoesNotAnswerLooksDefective) {
    open(module({{0, 0}, {400, 0}}, 300, kNever));
    fault("request:errno=EIO");
    EXPECT_EQ(driver.DetectActutorDefect(), -1);
    EXPECT_EQ(driver.mActuatorDefectError, 500);  // the hall values are still zero
}

TEST_F(DefectDetector, IndicesPastTheArraysReadWhatFollowsThem) {
    constexpr uint16_t kCount = 420;
    auto description = module({}, kInfinity, kInfinity);
    ois::OisCustInfo& info = description.custInfo;
    info.coordinateNum = kCount;
    for (size_t i = 0; i < 200; ++i) {
        info.coordinateX[i] = static_cast<float>(i);
        info.coordinateY[i] = static_cast<float>(1000 + i);
    }
    const float behind = 5000;  // the chip's name begins with this word
    std::memcpy(info.mOisIcName, &behind, sizeof behind);
    open(description);
    EXPECT_EQ(driver.DetectActutorDefect(), 0);
    ASSERT_EQ(sent().size(), 2U * kCount);
    const std::pair<size_t, Hall> cases[] = {{199, {100 + 199, -100 + 1199}},
                                             {200, {100 + 1000, -100 + 5000}},
                                             {400, {100 + 5000, -100}},
                                             {419, {100, -100}}};  // past the structure
    for (const auto& [coordinate, expected] : cases) {
        EXPECT_EQ(target(coordinate).x, expected.x) << coordinate;
        EXPECT_EQ(target(coordinate).y, expected.y) << coordinate;
    }
}

TEST_F(DefectDetector, BehindTheHubTheHallIsNeverRead) {
    auto description = phone::moduleByName("korvas4sw-hub");
    description.custInfo.coordinateNum = 1;
    description.custInfo.coordinateX[0] = 12;
    description.custInfo.max_error_threshold = 12;
    open(description);
    EXPECT_EQ(driver.DetectActutorDefect(), -1);  // centre and hall are 0 on this way
    ASSERT_EQ(sentKeys(), (Keys{"SET_FIX_MODE", "COMMAND_28"}));
    EXPECT_EQ(sent()[0].head(16), bytes("14 18 00 00  00 00 00 00 00 00 00 00 0c 00 00 00"));
}

TEST_F(DefectDetector, Operation19StartsARunAndCollectsATrippedOne) {
    auto description = dumpModule();
    description.custInfo.actuatorDetectSupport = 0;
    open(description);
    EXPECT_EQ(driver.SetOperation(19), 0);
    EXPECT_FALSE(driver.mDefectDetectThread.joinable());
    driver.Uninit();

    description.custInfo.actuatorDetectSupport = 1;
    open(description);
    const size_t commands = 2U * description.custInfo.coordinateNum;
    const auto runFor = [&](int64_t us) {
        forget();
        EXPECT_EQ(driver.SetOperation(19), 0);
        phone.clock().sleepUs(us);
        return sent().size();
    };
    constexpr int64_t kWholeRunUs = 2000000;
    EXPECT_EQ(runFor(60000), 3U);                  // held, read, held
    EXPECT_EQ(runFor(kWholeRunUs), commands - 3);  // a second request changes nothing
    EXPECT_EQ(driver.mDefectDetectDone, 0);
    EXPECT_EQ(runFor(kWholeRunUs), 0U);  // a good run is neither collected nor repeated
    EXPECT_TRUE(driver.mDefectDetectThread.joinable());
    driver.Uninit();
    EXPECT_TRUE(driver.mDefectDetectThread.joinable());
    driver.mDefectDetectThread.join();

    open(description);
    controller().stabiliser().setDefect(phone::LensDefect::kStuck, phone::LensDefect::kNone);
    EXPECT_GT(runFor(kWholeRunUs), 0U);
    EXPECT_EQ(driver.mDefectDetectDone, 1);
    EXPECT_NEAR(driver.mActuatorDefectError, 900, 20);
    EXPECT_EQ(runFor(kWholeRunUs), 0U);
    EXPECT_FALSE(driver.mDefectDetectThread.joinable());
    EXPECT_GT(runFor(kWholeRunUs), 0U);
}

}  // namespace
