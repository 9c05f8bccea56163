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

#include "driver/driver_fixture.h"
#include "kernel/kernel.h"
#include "trace/decode.h"

namespace {

using driver_test::courseOf;
using driver_test::kSensor;
using phone::Event;
using phone::EventKind;
using phone::FaultPoint;
using Lines = std::vector<std::string>;

constexpr int64_t kUpUs = 30000;  // the slower bring-up takes 20 ms

// A module, and how a hub takes the commands.
using Way = std::pair<const char*, const char*>;
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
    phone::FaultEffect effect;
    bool forEver;  // all further calls of its kind fail like it
};

// Events of calls that cannot fail, and the end of the last reference to a provider.
const std::set<std::string> kCannotFail{"usleep", "pthread_join", "release"};

Lines linesOf(const char* file, const std::string& section) {
    std::istringstream text(driver_test::writtenCourse(file, section));
    Lines lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

std::string replaced(std::string text, const std::string& word, const std::string& value) {
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + value.size()))
        text.replace(at, word.size(), value);
    return text;
}

// Of a line of any thread.
std::regex pattern(const std::string& format) {
    std::string text = std::regex_replace(format, std::regex(R"([.*+?^$|()\[\]{}\\])"), R"(\$&)");
    for (const auto& [conversion, values] : {std::pair("%d", "-?\\d+"),
                                             {"%u", "\\d+"},
                                             {"%x", "[0-9a-f]+"},
                                             {"%s", ".*"},
                                             {"%n", "\n(t\\d+ )?"},
                                             {"%f", "-?(\\d+\\.\\d{6}|inf|nan)"}}) {
        text = replaced(text, conversion, values);
    }
    return std::regex("(t\\d+ )?" + text + '\n');
}

// What stands behind " => " in the first line of courses/messages.txt that fits, often nothing; null when
// none fits. Each different line is looked at once.
const std::string* found(const std::string& line) {
    static const auto formats = [] {
        std::vector<std::pair<std::regex, std::string>> read;
        for (const std::string& format : linesOf("messages", "all")) {
            const size_t end = std::min(format.find(" => "), format.size());
            read.emplace_back(pattern(format.substr(0, end)),
                              format.substr(std::min(end + 4, format.size())));
        }
        return read;
    }();
    static std::map<std::string, const std::string*> known;
    const auto [entry, isNew] = known.try_emplace(line, nullptr);
    for (size_t i = 0; isNew && entry->second == nullptr && i < formats.size(); ++i) {
        if (std::regex_match(line, formats[i].first)) entry->second = &formats[i].second;
    }
    return entry->second;
}

void expectTheDriversMessages(const std::vector<Event>& events) {
    for (auto event = events.begin(); event != events.end(); ++event) {
        if (event->kind != EventKind::kMessage && event->fault == nullptr) continue;
        const std::string line = courseOf({*event});
        const std::string* expected = found(line);
        EXPECT_TRUE(expected != nullptr || event->kind != EventKind::kMessage) << line;
        if (expected == nullptr || expected->empty()) continue;
        std::vector<Event> next;
        std::copy_if(event, events.end(), std::back_inserter(next), [&](const Event& other) {
            return other.kind == EventKind::kMessage && other.thread == event->thread && next.size() < 2;
        });
        const phone::Field* path = phone::findField(*event, "path");
        std::string said = replaced(*expected, "%path", path == nullptr ? "" : phone::toText(*path));
        said = replaced(said, "%errno", std::to_string(event->error));
        said = replaced(said, "%error", std::strerror(event->error));
        EXPECT_TRUE(std::regex_search(courseOf(next), pattern(said), std::regex_constants::match_continuous))
            << line << courseOf(next);
    }
}

// One folder for all phones, not on a disk: the files would take longer than all else.
std::filesystem::path folder() {
    const std::filesystem::path memory = "/dev/shm";
    const bool there = std::filesystem::exists(memory);
    return (there ? memory : std::filesystem::temp_directory_path()) /
           ("ois-sweep-" + std::to_string(getpid()));
}

thread_local bool gAsked = false;  // faults were asked about the call whose event comes next

// A phone, a driver, and a story with at most one fault.
class Trial {
  public:
    Trial(const Lines& story, const Way& way, const Fault* fault) : mWay(way), mFault(fault) {
        mPhone.faults().setOverride(
            [this](FaultPoint point, std::string_view key, std::span<const uint8_t> record) {
                Call call{point, std::string(key)};
                // Those of one name differ in the register, or in what the firmware service does.
                if (point == FaultPoint::kHubCommand)
                    call.key += ' ' + driver_test::courseBytes({record.begin(), record.begin() + 8});
                return decide(call);
            });
        mPhone.trace().setListener([this](const Event& event) {
            const bool asked =
                std::exchange(gAsked, false) || event.error != 0 || event.kind == EventKind::kMessage;
            if (mSweeping && !asked) neverAsked.insert(phone::nameOf(event));
        });
        fit();
        for (const std::string& line : story) perform(line);
        mSweeping = false;
        close();
        expectTheDriversMessages(mPhone.trace().events());
        expectNothingLeft();
    }
    // A session without faults, on a phone as it was at first; without the numbers of its threads.
    std::string nextSession() {
        fit();
        mDriver.mOisErrorFlag = 0;
        mPhone.trace().clear();
        for (const char* step : {"open", "request 2 1 0", "operations 0 1"}) perform(step);
        close();
        expectNothingLeft();
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
    void fit() {
        phone::ModuleDescription module = phone::moduleByName(mWay.first);
        module.custInfo.coordinateNum = 3;  // as good as many
        mPhone.fit(kSensor, module);
        mPhone.properties().clear();
        mPhone.properties().set("vendor.debug.ois.bypassen", mWay.second);
    }
    // One line of a story; see courses/sweep.txt.
    void perform(const std::string& line) try {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "set") return words >> word, mPhone.properties().assign(word);
        if (word == "sweep") mSweeping = true;
        int a = 0, b = 0, c = 0;
        words >> a >> b >> c;
        ois_params params{1, {}, 0, 0,       -1, nullptr, 0,      4, static_cast<float>(b),
                          0, 0,  c, kSensor, {}, 1,       125000, 0, {}};
        ois_stream_info stream{a, 0};
        ois_focus_params focus{1, a, 0, 1.0F};
        ois_otp_data otp{};
        if (word == "open") mDriver.Init(1, 2), mPhone.clock().sleepUs(kUpUs);
        if (word == "close") mDriver.Uninit();
        if (word == "stream") mDriver.NotifyStream(&stream);
        if (word == "engineering") params.engineer_mode = 8, params.engineer_operation = a;
        if (word == "request") mDriver.EnableOis(a);
        if (word == "request" || word == "engineering") mDriver.SetOisParams(&params);
        if (word == "focus")
            mDriver.SetAccParam(reinterpret_cast<long>(&focus)), mDriver.SetOisAFdriftParams(a);
        for (int i = a; word == "operations" && i <= b; ++i) mDriver.SetOperation(i);
        if (word == "diagnose") mDriver.GetOisOtpData(&otp), mDriver.GetSensorData();
        if (word == "diagnose") mDriver.GetDataRuvex(), mDriver.CheckIcStatus();
        if (word == "firmware") mDriver.FirmwareUpdate(1, 2);
        if (word == "sleep") mPhone.clock().sleepUs(a);
        if (word == "thermal") mPhone.files().setThermal(std::to_string(a));
    } catch (const std::system_error& error) {
        // The one failure that leaves the driver as an exception.
        const bool noThread = mFault != nullptr && mFault->call.point == FaultPoint::kThreadCreate;
        EXPECT_TRUE(noThread && error.code().value() == mFault->effect.error) << error.what();
        EXPECT_EQ(mDriver.m_user_count, line == "open" ? 0 : 1);
    }
    void close() {
        while (mDriver.m_user_count > 0) mDriver.Uninit();
        for (std::thread* worker : {&mDriver.mDumpThread, &mDriver.mDefectDetectThread}) {
            if (worker->joinable()) worker->join();
        }
    }
    void expectNothingLeft() {
        std::map<std::string, int> threads;
        for (const Event& event : mPhone.trace().events(EventKind::kThread))
            threads[event.name] += event.error == 0;
        EXPECT_EQ(threads["pthread_create"], threads["pthread_join"]);
        EXPECT_EQ(mPhone.kernel().openNodes() + mPhone.kernel().openFiles(), 0U);
        EXPECT_EQ(mPhone.hub().providers() + mPhone.telemetry().references(), 0);
        EXPECT_EQ(mDriver.fd_driver, -1);
        EXPECT_EQ(mDriver.mSensorHubEnabled, 0);
    }
    std::optional<phone::FaultEffect> decide(const Call& call) {
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
    phone::Phone mPhone{
        {phone::KernelKind::kSimulated, phone::ClockMode::kSimulated, folder(), {}, {}, true}};
    OISDrv mDriver{kSensor};
};

// Every way in which the call can fail.
std::vector<Fault> faultsOf(const std::vector<Call>& calls, size_t i) {
    std::vector<Fault> faults;
    // In a row of like calls the first two fail, and the last.
    const bool inside = i >= 2 && i + 1 < calls.size() && calls[i] == calls[i + 1];
    if (inside && calls[i] == calls[i - 1] && calls[i] == calls[i - 2]) return faults;
    for (const std::string& failure : linesOf("sweep", "failures")) {
        const phone::Fault rule = phone::parseFault(failure);
        // What is written to a file can be lost, an open device cannot.
        const bool file = failure != "open:lost" || !calls[i].key.starts_with("/dev/");
        if (rule.point != calls[i].point || (!rule.key.empty() && rule.key != calls[i].key) || !file)
            continue;
        for (const bool forEver : {false, true}) faults.push_back({calls[i], i, rule.effect, forEver});
    }
    EXPECT_FALSE(faults.empty()) << "no failure is listed for the call " << calls[i].key;
    return faults;
}

class FaultSweep : public testing::TestWithParam<std::tuple<const char*, Way>> {};

TEST_P(FaultSweep, LeavesNothingBehind) {
    const auto& [name, way] = GetParam();
    const Lines story = linesOf("sweep", name);
    auto good = std::make_unique<Trial>(story, way, nullptr);
    const std::vector<Call> calls = good->calls;
    for (const std::string& call : good->neverAsked) EXPECT_TRUE(kCannotFail.contains(call)) << call;
    const std::string session = good->nextSession();
    good.reset();
    int injected = 0;
    for (size_t i = 0; i < calls.size() && !HasFailure(); ++i) {
        for (const Fault& fault : faultsOf(calls, i)) {
            SCOPED_TRACE("call " + std::to_string(i) + ", " + calls[i].key + ", error " +
                         std::to_string(fault.effect.error) + (fault.forEver ? ", for ever" : ", once"));
            Trial trial(story, way, &fault);
            EXPECT_TRUE(trial.struck);
            EXPECT_EQ(trial.nextSession(), session);
            ++injected;
        }
    }
    std::filesystem::remove_all(folder());
    RecordProperty("injected", injected);
    std::printf("%s: %d failures injected\n", name, injected);
}

INSTANTIATE_TEST_SUITE_P(Stories, FaultSweep,
                         testing::Combine(testing::Values("Session", "Recording", "Requests", "Dumps",
                                                          "Operations", "Detector", "EngineeringRequests",
                                                          "FixMode", "Streams", "Compensation",
                                                          "FirmwareAlone", "FirmwareInASession"),
                                          testing::ValuesIn(kWays)),
                         [](const auto& story) {
                             return std::get<0>(story.param) + std::to_string(story.index % std::size(kWays));
                         });

}  // namespace
