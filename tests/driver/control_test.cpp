// Control, where a story cannot tell: what the members hold while a command is under way, and threads that
// cannot be created.

#include <system_error>

#include "driver/driver_fixture.h"

namespace {

using Control = driver_test::DriverTest;

TEST_F(Control, GainsChangeWhenTheAnswerIsThere) {
    for (const char* module : {"dw9786", "korvas4sw-hub"}) {
        open(module);
        for (const int32_t operation : {5, 6, 15, 16, -4711, 4711}) {
            SCOPED_TRACE(module + std::to_string(operation));
            const ois::OisGain before{
                .axis = 7, .unused = 1, .valueXf = 2, .valueYf = 3, .valueXi = 4, .valueYi = 5};
            driver.mOisGain = before;
            bool same = false;
            decide = [&](auto&&...) {
                same = std::memcmp(&driver.mOisGain, &before, sizeof before) == 0;
                return std::nullopt;
            };
            driver.SetOperation(operation);
            EXPECT_TRUE(same);
            EXPECT_EQ(driver.mOisGain.axis, operation == 6 || operation == 16 || operation == 4711 ? 1U : 0U);
        }
        decide = nullptr;
        driver.Uninit();
    }
}

TEST_F(Control, AWorkerThatCannotBeCreatedIsASystemError) {
    auto module = phone::moduleByName("dw9786");
    module.custInfo.actuatorDetectSupport = 1;
    open(module);
    fault("thread:errno=EAGAIN");
    EXPECT_THROW(driver.SetOperation(19), std::system_error);
    EXPECT_FALSE(driver.mDefectDetectThread.joinable());
    driver.mProperty.dump = 1;
    ois_params request{};
    request.engineer_mode = 8;
    EXPECT_THROW(driver.SetOisParams(&request), std::system_error);
    EXPECT_FALSE(driver.mDumpThread.joinable());
}

}  // namespace
