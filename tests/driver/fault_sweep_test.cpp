// Every call that the driver makes fails: once, and then for ever. What is to fail is taken from a run in
// which nothing does, so that a new call is swept without a new line here. After each failure the messages
// are those that the driver has, nothing is left open or running, and a session without faults is like any
// other. Stories and failures stand in courses/sweep.txt, messages in courses/messages.txt.

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <system_error>
#include <unordered_map>

#include "driver/driver_fixture.h"
#include "kernel/kernel.h"

namespace {

using driver_test::courseOf;
using driver_test::kBringUpUs;
using driver_test::kSensor;
using phone::Event;
using phone::EventKind;
using phone::FaultEffect;
using phone::FaultPoint;

struct Way {
    const char* module;
    const char* bypass;
};
constexpr Way kWays[] = {
    {"dw9786", "1"}, {"korvas4sw-subdev", "1"}, {"korvas4sw-hub", "1"}, {"korvas4sw-hub", "0"}};

struct Call {
    FaultPoint point;
    std::string key;
    bool operator==(const Call& other) const = default;
};

struct Fault {
    Call call;
    size_t ordinal;  // among the story's calls
    FaultEffect effect;
    bool forEver;  // all further calls of its kind fail like it
};

// Events of calls that cannot fail, and the end of the last reference to a provider.
const std::set<std::string> kCannotFail{"usleep", "pthread_join", "release"};

std::vector<std::string> linesOf(const char* file, const std::string& section) {
    const driver_test::Values words{{"path", "%path"}, {"errno", "%errno"}, {"error", "%error"}};
    std::istringstream text(driver_test::writtenCourse(file, section, words));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

// The messages that the driver has, and the failures that it speaks of.
class Messages {
  public:
    Messages() {
        for (const std::string& line : linesOf("messages", "all")) mFormats.emplace_back(pattern(line), "");
        for (const std::string& line : linesOf("messages", "after a failure")) {
            const size_t arrow = line.find(" => ");
            mFormats.emplace_back(pattern(line.substr(0, arrow)), line.substr(arrow + 4));
        }
    }
    // Whether the line is one of them; each different one is looked at once.
    bool knows(const std::string& line) {
        const auto [known, isNew] = mKnown.try_emplace(line, nullptr);
        for (size_t i = 0; isNew && known->second == nullptr && i < mFormats.size(); ++i) {
            if (std::regex_match(line, mFormats[i].first)) known->second = &mFormats[i].second;
        }
        return known->second != nullptr;
    }
    // The message that belongs to the failure.
    std::regex saidOf(const std::string& line, const Event& event) {
        std::string said = *mKnown.at(line);
        const phone::Field* path = phone::findField(event, "path");
        replace(said, "%path", path == nullptr ? "" : phone::toText(*path));
        replace(said, "%errno", std::to_string(event.error));
        replace(said, "%error", std::strerror(event.error));
        return pattern(said);
    }

  private:
    static void replace(std::string& text, const std::string& word, const std::string& value) {
        for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + value.size()))
            text.replace(at, word.size(), value);
    }
    static std::regex pattern(const std::string& format) {
        static const std::map<std::string, std::string> kConversions{{"%d", "-?\\d+"},
                                                                     {"%u", "\\d+"},
                                                                     {"%x", "[0-9a-f]+"},
                                                                     {"%s", ".*"},
                                                                     {"%f", "-?(\\d+\\.\\d{6}|inf|nan)"}};
        std::string text = std::regex_replace(format, std::regex(R"([.*+?^$|()\[\]{}\\])"), R"(\$&)");
        for (const auto& [conversion, values] : kConversions) replace(text, conversion, values);
        return std::regex("(t\\d+ )?" + text);
    }

    std::vector<std::pair<std::regex, std::string>> mFormats;
    std::unordered_map<std::string, const std::string*> mKnown;
};

using Step = void (*)(OISDrv& driver, phone::Phone& phone, int a, int b, int c);

void request(OISDrv& driver, int engineer, int operation, float zoom, int scenario) {
    ois_params params{1, {}, 0,        engineer, operation, nullptr, 0,      4, zoom,
                      0, 0,  scenario, kSensor,  {},        1,       125000, 0, {}};
    driver.SetOisParams(&params);
}

const std::map<std::string, Step> kSteps{
    {"open",
     [](OISDrv& driver, phone::Phone& phone, int, int, int) {
         driver.Init(1, 2);
         phone.clock().sleepUs(kBringUpUs);
     }},
    {"close", [](OISDrv& driver, auto&, int, int, int) { driver.Uninit(); }},
    {"stream",
     [](OISDrv& driver, auto&, int on, int, int) {
         ois_stream_info info{on, 0};
         driver.NotifyStream(&info);
     }},
    {"request",
     [](OISDrv& driver, auto&, int dynamic, int zoom, int scenario) {
         driver.EnableOis(dynamic);
         request(driver, 0, -1, static_cast<float>(zoom), scenario);
     }},
    {"engineering",
     [](OISDrv& driver, auto&, int operation, int, int) { request(driver, 8, operation, 1.0F, 0); }},
    {"focus",
     [](OISDrv& driver, auto&, int distance, int, int) {
         ois_focus_params params{1, distance, 0, 1.0F};
         driver.SetAccParam(reinterpret_cast<long>(&params));
         driver.SetOisAFdriftParams(distance);
     }},
    {"operations",
     [](OISDrv& driver, auto&, int first, int last, int) {
         for (int operation = first; operation <= last; ++operation) driver.SetOperation(operation);
     }},
    {"diagnose",
     [](OISDrv& driver, auto&, int, int, int) {
         ois_otp_data otp{};
         driver.GetOisOtpData(&otp);
         driver.GetSensorData();
         driver.GetDataRuvex();
         driver.CheckIcStatus();
     }},
    {"firmware", [](OISDrv& driver, auto&, int, int, int) { driver.FirmwareUpdate(1, 2); }},
    {"sleep", [](OISDrv&, phone::Phone& phone, int us, int, int) { phone.clock().sleepUs(us); }},
    {"thermal", [](OISDrv&, phone::Phone& phone, int degC, int,
                   int) { phone.files().setThermal(std::to_string(degC)); }},
};

// One folder for all phones, not on a disk: the files would take longer than all else.
phone::PhoneOptions options() {
    phone::PhoneOptions shared;
    const std::filesystem::path memory = "/dev/shm";
    const bool there = std::filesystem::exists(memory);
    shared.folder =
        (there ? memory : std::filesystem::temp_directory_path()) / ("ois-sweep-" + std::to_string(getpid()));
    return shared;
}

thread_local bool gAsked = false;  // faults were asked about the call whose event comes next

// A phone, a driver, and a story with at most one fault.
class Run {
  public:
    Run(const std::vector<std::string>& story, const Way& way, const Fault* fault)
        : mWay(way), mFault(fault) {
        mPhone.properties().set("vendor.debug.ois.bypassen", way.bypass);
        mPhone.faults().setOverride([this](auto point, auto key, auto) {
            return decide({point, std::string(key)});
        });
        mPhone.trace().setListener([this](const Event& event) {
            const bool asked =
                std::exchange(gAsked, false) || event.error != 0 || event.kind == EventKind::kMessage;
            if (mSweeping && !asked) neverAsked.insert(event.name);
        });
        mPhone.fit(kSensor, phone::moduleByName(way.module));
        for (const std::string& line : story) perform(line);
        mSweeping = false;
        close();
    }

    void expectTheDriversMessages(Messages& messages) {
        struct Awaited {
            std::regex said;
            std::string failure;
            int within;  // so many messages
        };
        std::map<uint32_t, std::vector<Awaited>> awaited;  // by thread
        for (const Event& event : mPhone.trace().events()) {
            std::string line = courseOf({event});
            if (!line.empty()) line.pop_back();
            auto& waiting = awaited[event.thread];
            if (event.kind != EventKind::kMessage) {
                if (messages.knows(line)) waiting.push_back({messages.saidOf(line, event), line, 2});
                continue;
            }
            EXPECT_TRUE(messages.knows(line)) << line;
            std::erase_if(waiting, [&](Awaited& wait) {
                const bool said = std::regex_match(line, wait.said);
                EXPECT_TRUE(said || --wait.within > 0) << "nothing said of " << wait.failure;
                return said || wait.within == 0;
            });
        }
    }
    void expectNothingLeft() {
        std::map<std::string, int> threads;
        for (const Event& event : mPhone.trace().events(EventKind::kThread))
            threads[event.name] += event.error == 0;
        EXPECT_EQ(threads["pthread_create"], threads["pthread_join"]);
        EXPECT_EQ(mPhone.kernel().openNodes(), 0U);
        EXPECT_EQ(mPhone.kernel().openFiles(), 0U);
        EXPECT_EQ(mPhone.hub().providers(), 0);
        EXPECT_EQ(mPhone.telemetry().references(), 0);
        EXPECT_EQ(mDriver.fd_driver, -1);
        EXPECT_EQ(mDriver.mSensorHubEnabled, 0);
    }
    // A session without faults, on a controller as it was at first; without the numbers of its threads.
    std::string nextSession() {
        mPhone.fit(kSensor, phone::moduleByName(mWay.module));
        mPhone.properties().clear();
        mPhone.properties().set("vendor.debug.ois.bypassen", mWay.bypass);
        mDriver.mOisErrorFlag = 0;
        mPhone.trace().clear();
        for (const char* step : {"open", "request 2 1 0", "operations 0 1"}) perform(step);
        close();
        EXPECT_TRUE(mDriver.mStatusBuf == nullptr && mDriver.mOisFlashData == nullptr);
        std::string text;
        for (Event event : mPhone.trace().events()) {
            event.thread = std::min(event.thread, 1U);
            text += event.kind == EventKind::kThread ? event.name + '\n' : courseOf({event});
        }
        return text;
    }

    std::vector<Call> calls;
    std::set<std::string> neverAsked;
    bool struck = false;

  private:
    void perform(const std::string& line) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "set") {
            std::string value;
            words >> word >> value;
            mPhone.properties().set("vendor.debug.ois." + word, value);
        } else if (word == "sweep") {
            mSweeping = true;
        } else {
            int a = 0, b = 0, c = 0;
            words >> a >> b >> c;
            try {
                kSteps.at(word)(mDriver, mPhone, a, b, c);
            } catch (const std::system_error& error) {
                // The one failure that leaves the driver as an exception.
                const bool noThread = mFault != nullptr && mFault->call.point == FaultPoint::kThreadCreate;
                EXPECT_TRUE(noThread && error.code().value() == mFault->effect.error) << error.what();
            }
        }
    }
    void close() {
        while (mDriver.m_user_count > 0) mDriver.Uninit();
        for (std::thread* worker : {&mDriver.mDumpThread, &mDriver.mDefectDetectThread}) {
            if (worker->joinable()) worker->join();
        }
    }
    std::optional<FaultEffect> decide(const Call& call) {
        const std::lock_guard lock(mMutex);
        gAsked = true;
        if (!mSweeping) return std::nullopt;
        const size_t ordinal = calls.size();
        calls.push_back(call);
        if (mFault == nullptr || ordinal < mFault->ordinal) return std::nullopt;
        if (ordinal == mFault->ordinal) struck = call == mFault->call;
        const bool fails =
            ordinal == mFault->ordinal || (mFault->forEver && call.point == mFault->call.point);
        return fails ? std::optional(mFault->effect) : std::nullopt;
    }

    const Way& mWay;
    const Fault* mFault;
    std::mutex mMutex;
    std::atomic<bool> mSweeping{false};
    phone::Phone mPhone{options()};
    OISDrv mDriver{kSensor};
};

// Every way in which the call can fail.
std::vector<Fault> faultsOf(const std::vector<Call>& calls, size_t i) {
    std::vector<Fault> faults;
    // In a row of like calls the first two fail, and the last.
    const bool inside = i >= 2 && i + 1 < calls.size() && calls[i] == calls[i + 1];
    if (inside && calls[i] == calls[i - 1] && calls[i] == calls[i - 2]) return faults;
    static const std::vector<std::string> kFailures = linesOf("sweep", "failures");
    size_t known = 0;
    for (const std::string& failure : kFailures) {
        const phone::FaultRule rule = phone::parseFault(failure);
        if (rule.point != calls[i].point || (!rule.key.empty() && rule.key != calls[i].key)) continue;
        ++known;
        // What is written to a file can be lost, an open device cannot.
        if (failure == "open:lost" && calls[i].key.starts_with("/dev/")) continue;
        for (const bool forEver : {false, true}) faults.push_back({calls[i], i, rule.effect, forEver});
    }
    EXPECT_NE(known, 0U) << "no failure is listed for call " << calls[i].key;
    return faults;
}

int sweep(const std::vector<std::string>& story, const Way& way) {
    Messages messages;
    std::vector<Call> calls;
    std::string session;
    {
        Run good(story, way, nullptr);
        calls = good.calls;
        for (const std::string& name : good.neverAsked) EXPECT_TRUE(kCannotFail.contains(name)) << name;
        good.expectTheDriversMessages(messages);
        good.expectNothingLeft();
        session = good.nextSession();
    }
    int injected = 0;
    for (size_t i = 0; i < calls.size() && !testing::Test::HasFailure(); ++i) {
        for (const Fault& fault : faultsOf(calls, i)) {
            SCOPED_TRACE("call " + std::to_string(i) + ' ' + calls[i].key + " errno " +
                         std::to_string(fault.effect.error) + (fault.forEver ? " for ever" : " once"));
            Run run(story, way, &fault);
            EXPECT_TRUE(run.struck);
            run.expectTheDriversMessages(messages);
            run.expectNothingLeft();
            EXPECT_EQ(run.nextSession(), session);
            run.expectNothingLeft();
            ++injected;
        }
    }
    return injected;
}

class FaultSweep : public testing::TestWithParam<const char*> {};

TEST_P(FaultSweep, LeavesNothingBehind) {
    int injected = 0;
    for (const Way& way : kWays) {
        SCOPED_TRACE(std::string(way.module) + ", bypass " + way.bypass);
        injected += sweep(linesOf("sweep", GetParam()), way);
    }
    std::filesystem::remove_all(options().folder);
    RecordProperty("injected", injected);
    std::printf("%s: %d failures injected\n", GetParam(), injected);
}

INSTANTIATE_TEST_SUITE_P(Stories, FaultSweep,
                         testing::Values("Session", "Recording", "Requests", "EngineeringRequests", "Dumps",
                                         "Operations", "FixMode", "Streams", "Compensation", "FirmwareAlone",
                                         "FirmwareInASession"),
                         [](const auto& story) { return std::string(story.param); });

}  // namespace
