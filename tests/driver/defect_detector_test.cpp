// The actuator defect detector on coordinates past its arrays, and on a lens.

#include <limits>

#include "driver/driver_fixture.h"

namespace {

using DefectDetector = driver_test::DriverTest;

TEST_F(DefectDetector, IndicesPastTheArraysReadWhatFollowsThem) {
    constexpr uint16_t kCount = 420;
    auto module = phone::moduleByName("dw9786");
    ois::OisCustInfo& info = module.custInfo;
    info.coordinateNum = kCount;
    info.max_error_threshold = info.max_sum_error_threshold = std::numeric_limits<float>::infinity();
    for (size_t i = 0; i < 200; ++i) {
        info.coordinateX[i] = static_cast<float>(i);
        info.coordinateY[i] = static_cast<float>(1000 + i);
    }
    const float behind[] = {5000, 7000};  // the chip's name, and the last word of the block
    std::memcpy(info.mOisIcName, &behind[0], sizeof behind[0]);
    std::memcpy(info.cameraTypeName + 12, &behind[1], sizeof behind[1]);
    module.hallInfo.centerX = 100;
    module.hallInfo.centerY = -100;
    open(module);
    EXPECT_EQ(driver.DetectActutorDefect(), 0);
    ASSERT_EQ(sent().size(), 2U * kCount);
    // Bytes 56 and 856 on, and the block ends at 1704: index 411 for x, 211 for y.
    const std::tuple<size_t, int32_t, int32_t> cases[] = {
        {199, 299, 1099},  {200, 1100, 4900}, {211, 1111, 6900}, {212, 1112, -100},
        {400, 5100, -100}, {411, 7100, -100}, {412, 100, -100},  {419, 100, -100}};
    for (const auto& [coordinate, x, y] : cases) {
        int32_t target[2];
        std::memcpy(target, &sent().at(2 * coordinate).bytes[8], sizeof target);
        EXPECT_EQ(target[0], x) << coordinate;
        EXPECT_EQ(target[1], y) << coordinate;
    }
}

TEST_F(DefectDetector, FindsALensThatIsStuck) {
    open("dw9786");
    EXPECT_EQ(driver.DetectActutorDefect(), 0);
    EXPECT_EQ(driver.mDefectDetectDone, 0);
    controller().stabiliser().setDefect(phone::LensDefect::kStuck, phone::LensDefect::kNone);
    EXPECT_EQ(driver.DetectActutorDefect(), -1);
    // It is stuck in the last corner, and the first is opposite.
    EXPECT_NEAR(driver.mActuatorDefectError, 1800, 20);
}

}  // namespace
