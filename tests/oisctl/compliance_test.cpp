// The checks of the kernel side: they pass on the simulated kernel, and each of them can fail.

#include <gtest/gtest.h>
#include <linux/ioctl.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "base/junit.h"
#include "compliance/examination.h"
#include "oisctl/oisctl_fixture.h"
#include "phone.h"

namespace {

using Names = std::set<std::string>;
using Verdict = oisctl::Finding::Verdict;
using phone::FaultEffect;
using phone::FaultPoint;

constexpr const char* kNode = "/dev/v4l-subdev10";
constexpr uint32_t kWritingNumbers[] = {0xC4, 0xC5, 0xCE};  // gyro offset, firmware, gains
const Names kWritingChecks{"SET_GYRO_OFFSET", "UPDATE_FIRMWARE", "WRITE_GAIN", "gains are kept"};

class Compliance : public testing::Test {
  protected:
    explicit Compliance(const char* name = "dw9786") : mModule(phone::moduleByName(name)) {
        mPhone.fit(0, mModule);
    }
    phone::Controller& controller() { return *mPhone.controller(0); }

    std::vector<oisctl::Result> examine(bool allowWrite = true) {
        return oisctl::examine({kNode, &mModule, allowWrite}, [](size_t, size_t) {});
    }
    Names examined(Verdict verdict, bool allowWrite = true) {
        Names names;
        for (const oisctl::Result& result : examine(allowWrite))
            if (result.finding.verdict == verdict) names.insert(result.name);
        return names;
    }

    const phone::ModuleDescription mModule;
    phone::Phone mPhone;
};

class ComplianceOf : public Compliance, public testing::WithParamInterface<const char*> {
  protected:
    ComplianceOf() : Compliance(GetParam()) {}
};

TEST_P(ComplianceOf, TheSimulatedKernelPasses) {
    for (const auto answer : {phone::FlashAnswer::kInPlace, phone::FlashAnswer::kThroughPointer}) {
        controller().setFlashAnswer(answer);
        const bool follows = answer == phone::FlashAnswer::kThroughPointer;
        for (const oisctl::Result& result : examine()) {
            const bool asked = follows || result.name != "flash at a bad address";
            EXPECT_EQ(result.finding.verdict, asked ? Verdict::kOk : Verdict::kNotAsked)
                << result.name << ": " << result.finding.seen;
            if (result.name != "flash") continue;
            EXPECT_TRUE(result.finding.seen.starts_with(follows ? "follows" : "answers in place"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Modules, ComplianceOf, testing::Values("dw9781", "dw9786", "korvas4sw-subdev"),
                         [](const auto& module) {
                             return std::string(std::string_view(module.param).substr(0, 5)) +
                                    std::to_string(module.index);
                         });

TEST_F(Compliance, NothingThatWritesCalibrationIsSentUnasked) {
    Names notAsked = kWritingChecks;
    notAsked.insert("flash at a bad address");
    EXPECT_EQ(examined(Verdict::kNotAsked, false), notAsked);
    const auto writes = [this] {
        return std::ranges::count_if(
            mPhone.trace().events(phone::EventKind::kSubDevice), [](const phone::Event& event) {
                return std::ranges::find(kWritingNumbers, _IOC_NR(event.code)) != std::end(kWritingNumbers);
            });
    };
    EXPECT_EQ(writes(), 0) << "of any size or direction";
    examined(Verdict::kOk);
    EXPECT_GT(writes(), 0);
}

TEST_F(Compliance, TheControllerIsLeftAsItWas) {
    ois::OisGain gain{};
    const oisctl::Subject subject{kNode, &mModule, true};
    examined(Verdict::kOk);
    ASSERT_EQ(oisctl::SubDevice(subject).ask(ois::Request::kReadGain, gain), 0);
    EXPECT_EQ(gain.valueXi, mModule.gain.valueXi);
    EXPECT_EQ(gain.valueYi, mModule.gain.valueYi);
    EXPECT_EQ(controller().mode(), 0);
    EXPECT_EQ(controller().stabiliser().mode(), phone::StabiliserMode::kOff);
}

TEST_F(Compliance, ARequestThatIsNotKnownFails) {
    const Names atTheEnd{"SET_FIX_MODE", "SET_MODE", "END_SESSION"};
    for (const phone::RequestInfo& request : phone::privateRequests()) {
        const std::string name(request.name);
        mPhone.faults().add("request." + name + ":errno=ENOTTY");
        EXPECT_EQ(examined(Verdict::kFailed),
                  atTheEnd.contains(name) ? Names({name, "left at rest"}) : Names({name}));
        mPhone.faults().clear();
    }
}

TEST_F(Compliance, EveryOtherCheckFailsForItsFault) {
    const Names bothWays{"all of it goes in", "all of it comes back"};
    const Names anywhere{"all of it goes in", "all of it comes back", "null", "unmapped memory",
                         "read-only memory for an answer"};
    const std::pair<const char*, Names> cases[] = {
        {"request.READ_GAIN:moves=-1", bothWays},
        {"request.READ_STATUS:moves=+8", {"nothing outside it is touched"}},
        {"request.SET_MODE:moves=+4", {"nothing outside it is touched", "what only goes in is left alone"}},
        {"request.READ_GAIN:garbage=01", {"reserved bytes", "gains are kept"}},
        {"request.GET_HALL:result=0", anywhere},
        {"request.UNKNOWN:result=0", {"other numbers", "other sizes", "other directions"}},
        {"close./dev/v4l-subdev10@500:errno=EIO", {"opened and closed"}},
        {"READ_STATUS:garbage=00", {"times of samples"}},
        {"READ_FLASH:garbage=ff", {"flash"}},
        {"READ_FLASH:garbage=5aa5", {"flash"}},
        {"SET_CUSTOMISATION:garbage=ff", {"customisation"}},
        {"lens.stuck-y", {"hall follows the target"}},
        {"WRITE_GAIN:lost", {"gains are kept", "all of it comes back", "read-only memory for an answer"}},
    };
    for (const auto& [fault, failing] : cases) {
        mPhone.faults().add(fault);
        EXPECT_EQ(examined(Verdict::kFailed), failing) << fault;
        mPhone.faults().clear();
    }
    controller().setFlashAnswer(phone::FlashAnswer::kThroughPointer);
    mPhone.faults().add("READ_FLASH:result=0");
    EXPECT_TRUE(examined(Verdict::kFailed).contains("flash at a bad address"));
}

TEST_F(Compliance, SessionsThatDisturbEachOtherFail) {
    const auto whileOpen = [this](size_t nodes, FaultPoint where, FaultEffect effect, std::string_view name) {
        mPhone.faults().setOverride([=, this](FaultPoint point, std::string_view key, auto) {
            const bool strikes = point == where && key == name && mPhone.kernel().openNodes() >= nodes;
            return strikes ? std::optional(effect) : std::nullopt;
        });
        return examined(Verdict::kFailed);
    };
    EXPECT_EQ(whileOpen(1, FaultPoint::kOpen, {.error = EBUSY}, kNode),
              Names({"two at once", "reading at once"}));
    const FaultEffect torn{.kind = FaultEffect::Kind::kGarbage, .bytes = {0x41, 0, 0, 0}};
    for (const char* const request : {"READ_HALL_INFO", "READ_STATUS"})
        EXPECT_TRUE(whileOpen(4, FaultPoint::kRequest, torn, request).contains("reading at once")) << request;
}

TEST_F(Compliance, ADeviceThatGoesAwayFailsOnceAndTheRestIsNotAsked) {
    mPhone.faults().add("request@after100:errno=ENODEV");
    EXPECT_EQ(examined(Verdict::kFailed).size(), 1U);
    EXPECT_TRUE(examined(Verdict::kNotAsked).contains("left at rest"));
}

TEST_F(Oisctl, AComplianceRunThatIsInterruptedLeavesTheLensAtRest) {
    const std::vector<json> events = trace("compliance --real-time", interruptedAt("SET_FIX_MODE"));
    std::vector<std::string> asked;
    for (const json& event : events)
        if (event.value("kind", "") == "sub-device") asked.push_back(event["name"]);
    ASSERT_GT(asked.size(), 3U);
    EXPECT_EQ(std::vector(asked.end() - 3, asked.end()),
              (std::vector<std::string>{"SET_FIX_MODE", "SET_MODE", "END_SESSION"}));
    EXPECT_LT(std::ranges::count(asked, "SET_FIX_MODE"), 25) << "it was interrupted among the targets";
}

TEST_F(Oisctl, ANodeThatCannotBeReachedIsSaidOnce) {
    const Outcome outcome = run("compliance --junit x.xml --kernel real --node /dev/v4l-subdev99");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(lines(outcome.err), 1U) << outcome.err;
    EXPECT_NE(outcome.err.find("/dev/v4l-subdev99"), std::string::npos) << outcome.err;
    // Who reads the results for programs learns of it, too.
    EXPECT_NE(readFile(mFolder / "x.xml").find("<failure message=\"/dev/v4l-subdev99"), std::string::npos);
    const Outcome told = run("compliance --json --kernel real --node /dev/v4l-subdev99");
    EXPECT_EQ(told.status, 1);
    const json report = parsed(told.out);
    EXPECT_EQ(report.value("good", true), false) << told.out;
    EXPECT_EQ("oisctl: " + report.value("error", "") + "\n", told.err);
}

TEST(Junit, HoldsWhatXmlCannotInOtherWords) {
    using Outcome = oisctl::JunitCase::Outcome;
    EXPECT_EQ(oisctl::junitText("all", {{"a", "one"},
                                        {"a", "<two>", Outcome::kFailed, "\"x\" & y\n\x01\xff"},
                                        {"b", "three", Outcome::kSkipped, "why"}}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<testsuites>\n"
              "  <testsuite name=\"all\" tests=\"3\" failures=\"1\" errors=\"0\" skipped=\"1\">\n"
              "    <testcase classname=\"a\" name=\"one\"/>\n"
              "    <testcase classname=\"a\" name=\"&lt;two&gt;\">\n"
              "      <failure message=\"&quot;x&quot; &amp; y&#10;??\"/>\n"
              "    </testcase>\n"
              "    <testcase classname=\"b\" name=\"three\">\n"
              "      <skipped message=\"why\"/>\n"
              "    </testcase>\n"
              "  </testsuite>\n"
              "</testsuites>\n");
}

}  // namespace
