// Faults: how they are written, and when they strike.

#include "faults/faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "test_support.h"
#include "time/clock.h"

namespace {

using namespace phone;
using Bytes = std::vector<uint8_t>;

TEST(FaultText, SaysWhereWhenAndWhat) {
    constexpr uint64_t kEver = std::numeric_limits<uint64_t>::max();
    const std::tuple<const char*, FaultPoint, const char*, uint64_t, uint64_t> places[] = {
        {"SET_MODE:lost", FaultPoint::kCommand, "SET_MODE", 1, kEver},
        {"hub.SET_MODE@2:lost", FaultPoint::kHubCommand, "SET_MODE", 2, 2},
        {"request@7-9:lost", FaultPoint::kRequest, "", 7, 9},
        {"open./dev/x@after3:fail", FaultPoint::kOpen, "/dev/x", 4, kEver},
        {"readlink./81:3@1:fail", FaultPoint::kReadlink, "/81:3", 1, 1},
        {"property.vendor.debug.ois.mode:result=1", FaultPoint::kProperty, "vendor.debug.ois.mode", 1, kEver},
        {"thread-schedule@always:fail", FaultPoint::kThreadSchedule, "", 1, kEver},
        {"chip.never-idle@2", FaultPoint::kChip, "never-idle", 2, 2},
        {"chip.power-cut=57", FaultPoint::kChip, "power-cut", 1, 1},
        {"lens.stuck-x", FaultPoint::kLens, "stuck-x", 1, kEver},
    };
    for (const auto& [text, point, key, first, last] : places) {
        const Fault fault = parseFault(text);
        EXPECT_EQ(fault.text, text);
        EXPECT_TRUE(fault.point == point && fault.key == key) << text;
        EXPECT_TRUE(fault.first == first && fault.last == last) << text;
    }
    EXPECT_EQ(parseFault("SET_MODE:errno=EBUSY").effect.error, EBUSY);
    EXPECT_EQ(parseFault("SET_MODE:errno=16").effect.error, EBUSY);
    EXPECT_EQ(parseFault("SET_MODE:slow=1.5ms").effect.delayUs, 1500);
    EXPECT_EQ(parseFault("READ_GAIN:garbage=fF00").effect.bytes, (Bytes{255, 0}));
    EXPECT_EQ(parseFault("READ_GAIN:result=-3").effect.result, -3);
    EXPECT_EQ(parseFault("request.SET_MODE:moves=+8").effect.result, 8);
    EXPECT_EQ(parseFault("request.SET_MODE:moves=-3").effect.result, -3);
    EXPECT_EQ(parseFault("chip.calibration-error=0x21").effect.result, 0x21);
    EXPECT_EQ(parseFault("chip.power-cut=57").object, 57);
}

TEST(FaultText, ErrorsSayWhatWouldBeRight) {
    const std::pair<const char*, const char*> lines[] = {
        {"READ_REGISTR:lost", "did you mean 'READ_REGISTER'?"},
        {"hub.CHECK_STATUS:lost", "no hub command 'CHECK_STATUS'; it may be: READ_REGISTER, WRITE_REGISTER"},
        {"thread.x:fail", "'thread' takes no name"},
        {"SET_MODE@0:lost", "count from 1 on"},
        {"SET_MODE@3-2:lost", "ends before it begins"},
        {"SET_MODE@afterx:lost", "as in '@3', '@2-5' or '@after3'"},
        {"SET_MODE@:lost", "count from 1 on"},
        {"SET_MODE:errno=EBUSSY", "did you mean 'EBUSY'?"},
        {"SET_MODE:slow=20", "with us, ms or s, as in 'slow=20ms'"},
        {"SET_MODE:garbage=f", "pairs of hex digits"},
        {"request:moves=65", "more or fewer, at most 64, as in 'moves=+8'"},
        {"thread:garbage=00", "'garbage' means nothing at 'thread'; it may be: fail, errno=EIO, slow=20ms"},
        {"chip.nevr-idle", "did you mean 'chip.never-idle'?"},
        {"chip.never-idle=1", "'chip.never-idle' takes no value"},
        {"chip.never-idle:lost", "'chip.never-idle' says it all"},
        {"chip.power-cut", "write 'chip.power-cut=N' with a number from 0 to 111"},
        {"chip.power-cut=112", "a number from 0 to 111"},
        {"lens.stuck-z", "did you mean 'lens.stuck-"},
    };
    for (const auto& [text, expected] : lines) {
        const std::string message = test_support::thrown([&text = text] { parseFault(text); });
        EXPECT_NE(message.find(expected), std::string::npos) << message;
        EXPECT_TRUE(message.starts_with("fault '" + std::string(text) + "'")) << message;
        EXPECT_EQ(message.find('\n'), std::string::npos);
    }
}

TEST(FaultStrikes, CountMatchesOfEachAndHearAnOverrideFirst) {
    Clock clock(ClockMode::kSimulated);
    Faults faults(clock);
    const auto strike = [&faults](std::string_view key, FaultPoint point = FaultPoint::kRequest) {
        const Fate fate = faults.consult(point, key, std::as_bytes(std::span("\2")));
        return fate ? fate.fault()->text : "";
    };
    EXPECT_EQ(strike("SET_MODE"), "");
    for (const char* text : {"SET_MODE@2-3:lost", "request:slow=1ms", "hub@after1:fail", "chip.power-cut=5"})
        faults.add(text);
    EXPECT_EQ(strike("SET_MODE"), "request:slow=1ms");
    EXPECT_EQ(clock.nowUs(), 1000) << "a slow call has waited";
    EXPECT_EQ(strike("SET_MODE", FaultPoint::kHubCommand), "SET_MODE@2-3:lost") << "whichever way it goes";
    EXPECT_EQ(strike("READ_GAIN"), "request:slow=1ms");
    EXPECT_EQ(strike("SET_MODE"), "SET_MODE@2-3:lost") << "the first one that is due";
    EXPECT_EQ(strike("SET_MODE"), "request:slow=1ms");
    EXPECT_EQ(strike("READ_GAIN", FaultPoint::kHubCommand), "hub@after1:fail");
    EXPECT_FALSE(faults.consult(FaultPoint::kChip, "power-cut", 4));
    EXPECT_TRUE(faults.consult(FaultPoint::kChip, "power-cut", 5));
    EXPECT_FALSE(faults.consult(FaultPoint::kChip, "power-cut", 5)) << "once";

    faults.setOverride([](FaultPoint, std::string_view key, std::span<const uint8_t> input) {
        return key == "READ_HALL" ? std::optional(FaultEffect{.error = input[0]}) : std::nullopt;
    });
    EXPECT_EQ(faults.consult(FaultPoint::kRequest, "READ_HALL", std::as_bytes(std::span("\2"))).error(), 2);
    EXPECT_EQ(strike("SET_MODE"), "request:slow=1ms");
    faults.clear();
    faults.setOverride(nullptr);
    EXPECT_EQ(strike("SET_MODE"), "");
    std::string counts;
    for (const Faults::Count& count : faults.counts())
        counts +=
            count.text + ' ' + std::to_string(count.strikes) + '/' + std::to_string(count.reached) + ", ";
    EXPECT_EQ(counts,
              "SET_MODE@2-3:lost 2/5, request:slow=1ms 4/5, hub@after1:fail 1/2, chip.power-cut=5 1/2, ");
}

}  // namespace
