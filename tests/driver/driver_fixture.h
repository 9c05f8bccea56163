#pragma once
// What the driver's tests stand on: a simulated phone, a driver object of its own, and the bytes that pass
// between them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "controllers/controller.h"
#include "driver/course.h"
#include "hub/sensor_hub.h"
#include "kernel/file_tree.h"
#include "kernel/media_graph.h"
#include "modules/module_description.h"
#include "ois_drv.h"
#include "phone.h"
#include "services/log_service.h"
#include "services/property_store.h"
#include "services/telemetry.h"

namespace driver_test {

constexpr int32_t kSensor = 2;
constexpr int64_t kBringUpUs = 100000;  // more than any bring-up takes

// One command as it left the driver.
struct Sent {
    phone::FaultPoint point;
    std::string key;
    std::vector<uint8_t> bytes;

    std::vector<uint8_t> head(std::ptrdiff_t length) const { return {bytes.begin(), bytes.begin() + length}; }
};

class DriverTest : public ::testing::Test {
  protected:
    explicit DriverTest(phone::PhoneOptions options = {}) : phone(std::move(options)) {
        phone.faults().setOverride(
            [this](phone::FaultPoint point, std::string_view key,
                   std::span<const uint8_t> input) -> std::optional<phone::FaultEffect> {
                if (point == phone::FaultPoint::kRequest || point == phone::FaultPoint::kHubCommand) {
                    const std::lock_guard lock(mMutex);
                    mSent.push_back({point, std::string(key), {input.begin(), input.end()}});
                }
                return decide ? decide(point, key, input) : std::nullopt;
            });
    }
    ~DriverTest() override {
        while (driver.m_user_count > 0) driver.Uninit();
        // Workers that the last Uninit leaves alone.
        for (std::thread* worker : {&driver.mDumpThread, &driver.mDefectDetectThread}) {
            if (worker->joinable()) worker->join();
        }
    }

    void fit(const phone::ModuleDescription& module) { phone.fit(kSensor, module); }
    // Opens the driver on a module and waits until the channel is up; what was sent until then is forgotten.
    void open(const phone::ModuleDescription& module) {
        fit(module);
        ASSERT_EQ(driver.Init(1, 2), 1);
        phone.clock().sleepUs(kBringUpUs);
        forget();
    }
    void open(const std::string& moduleName) { open(phone::moduleByName(moduleName)); }

    void setProperty(const std::string& name, int value) {
        phone.properties().set("vendor.debug.ois." + name, std::to_string(value));
    }
    void fault(const std::string& text) { phone.faults().add(text); }

    phone::Controller& controller() { return *phone.controller(kSensor); }

    std::vector<Sent> sent() {
        const std::lock_guard lock(mMutex);
        return mSent;
    }
    std::vector<std::string> sentKeys() {
        std::vector<std::string> keys;
        for (const Sent& command : sent()) keys.push_back(command.key);
        return keys;
    }
    int64_t count(std::string_view key) { return std::ranges::count(sent(), key, &Sent::key); }
    void forget() {
        const std::lock_guard lock(mMutex);
        mSent.clear();
        phone.trace().clear();
    }

    // What happened since it was last asked for: everything, in order, and who did it; see course.h. Messages
    // of all levels are switched on.
    std::string course() {
        std::string lines = courseOf(phone.trace().events());
        forget();
        return lines;
    }
    // The same, held against a course that was written out.
    void expectCourse(const std::string& file, const std::string& section, const Values& values = {}) {
        EXPECT_EQ(writtenCourse(file, section, values), course()) << file << " [" << section << ']';
    }

    // Texts of the messages so far, in order.
    std::vector<std::string> messages() {
        std::vector<std::string> texts;
        for (const phone::Event& event : phone.trace().events(phone::EventKind::kMessage))
            texts.push_back(event.text);
        return texts;
    }

    phone::Phone phone;
    OISDrv driver{kSensor};
    // A test's own faults, beside the recording.
    phone::Faults::Override decide;

  private:
    std::mutex mMutex;
    std::vector<Sent> mSent;
};

// A record as bytes typed by hand: "04 00 00 00", with or without the spaces.
inline std::vector<uint8_t> bytes(std::string_view hex) {
    std::vector<uint8_t> result;
    for (size_t i = 0; i + 1 < hex.size();) {
        if (hex[i] == ' ') {
            ++i;
            continue;
        }
        result.push_back(static_cast<uint8_t>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
        i += 2;
    }
    return result;
}

}  // namespace driver_test
