#include "replay/scenario_of_trace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "base/errors.h"
#include "kernel/file_tree.h"
#include "modules/module_description.h"
#include "replay/recorded_answers.h"
#include "scenario/scenario.h"
#include "session/calls.h"
#include "session/request_fields.h"
#include "session/tally.h"
#include "trace/decode.h"
#include "wire/requests.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;
using phone::FaultPoint;

namespace {

constexpr int64_t kSecondUs = 1'000'000;
constexpr int64_t kFrameRate = 1000;  // the highest: the shortest session that there can be
constexpr size_t kMostInOrder = 400;  // beyond it a list of commands tells nobody anything

// The number nearest to what is written.
double secondsOf(int64_t timeUs) {
    return static_cast<double>(timeUs) / static_cast<double>(kSecondUs);
}

// As TOML has it.
std::string tomlText(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        if (static_cast<unsigned char>(c) >= ' ') {
            result += c;
        } else {
            result += fmt::format("\\u{:04X}", static_cast<unsigned char>(c));
        }
    }
    return result + '"';
}

// --- Calls.

// Fields of a request that are not as usual.
std::string requestText(const ois_params& params, int32_t sensorDev) {
    std::string text;
    Moment stating;
    stating.request.emplace();
    const ois_params usual = Scenario::requestOf(stating, sensorDev);
    const auto add = [&text](const phone::Field& field) {
        text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", field.name, toText(field));
    };
    const std::vector<phone::Field> fields = allFieldsOf(params);
    const std::vector<phone::Field> otherwise = allFieldsOf(usual);
    for (size_t at = 0; at < fields.size(); ++at)
        if (fields[at].value != otherwise[at].value) add(fields[at]);
    if (params.sensor_dev != usual.sensor_dev) add({"sensor_dev", int64_t{params.sensor_dev}});
    return fmt::format("request = {{ {} }}\n", text);
}

std::string genericText(const Event& call) {
    std::string text = fmt::format("call = {}\n", tomlText(call.name));
    std::string arguments;
    if (!call.sent.empty()) text += fmt::format("record = \"{}\"\n", phone::hexOf(call.sent));
    for (const phone::Field& field : call.fields) {
        // A record has it all, but for its lengths.
        const bool counts =
            field.name != "sensor" && (call.sent.empty() || findField(call, "output_length") != nullptr);
        if (!counts || std::holds_alternative<double>(field.value) ||
            std::holds_alternative<std::string>(field.value))
            continue;
        arguments += fmt::format("{}{} = {}", arguments.empty() ? "" : ", ", field.name,
                                 phone::integerField({.fields = {field}}, field.name));
    }
    return arguments.empty() ? text : text + fmt::format("arguments = {{ {} }}\n", arguments);
}

// What the entry says of the call, when it says it.
std::string callText(const Event& call, int32_t sensorDev) {
    static const std::map<std::string_view, std::pair<const char*, const char*>> kNumbers{
        {"SetMode", {"mode", "mode"}},
        {"SetOperation", {"operation", "operation"}},
        {"EnableOis", {"dynamic", "dynamic"}},
        {"SetOisCfgData", {"sensor_mode", "sensor_mode"}},
    };
    const auto number = kNumbers.find(call.name);
    if (number != kNumbers.end() && findField(call, number->second.first) != nullptr) {
        const auto& [argument, key] = number->second;
        return fmt::format("{} = {}\n", key, phone::integerField({.fields = call.fields}, argument));
    }
    if (call.name == "CheckIcStatus") return "check_status = true\n";
    if (call.name == "SetOisParams" && call.sent.size() == sizeof(ois_params))
        return requestText(phone::recordOf<ois_params>(call.sent), sensorDev);
    if (call.name == "NotifyStream" && call.sent.size() == sizeof(ois_stream_info)) {
        const auto info = phone::recordOf<ois_stream_info>(call.sent);
        const bool told = info.notify_stream == 0 || info.notify_stream == 1;
        if (told) return fmt::format("stream = \"{}\"\n", info.notify_stream == 1 ? "on" : "off");
    }
    return genericText(call);
}

// An entry of the timeline, and when it happens.
struct Entry {
    std::vector<int64_t> timesUs;  // from the opening
    std::string text;
};

class Teller {
  public:
    Teller(const TraceFile& trace, const std::set<std::string>& polled) : mTrace(trace), mPolled(polled) {
        const auto kernel = std::ranges::find(trace.about, "kernel", &phone::Field::name);
        const auto recorder = std::ranges::find(trace.about, "recorder", &phone::Field::name);
        const auto is = [&trace](const auto& field, const char* text) {
            return field != trace.about.end() && toText(*field) == text;
        };
        mSimulated = is(kernel, "simulated") && is(recorder, "oisctl");
        const auto sensor = std::ranges::find(trace.about, "sensor", &phone::Field::name);
        if (sensor != trace.about.end()) mSensorDev = phone::integerField({.fields = trace.about}, "sensor");
    }

    ToldScenario tell() {
        for (const TracedEvent& traced : mTrace.events) take(traced);
        addPending();
        if (!mOpenedUs) {
            throw InputError(mTrace.path.string() +
                             ": holds no Init that ended; a scenario begins with the driver's opening");
        }
        leaveOut("the phone's motion, which is in no trace: --motion, or motion in the scenario");
        ToldScenario told;
        const std::string expectations = expectationsText();  // may leave out something
        told.text = headText() + propertiesText() + faultsText();
        for (const Entry& entry : mEntries) told.text += entryText(entry);
        told.text += expectations;
        told.calls = mCalls;
        told.faults = mFaults.size();
        told.expectations = mExpectations;
        told.leftOut = mLeftOut;
        return told;
    }

  private:
    void take(const TracedEvent& traced) {
        const Event& event = traced.event;
        if (mClosed) return leaveOutCall(traced, "comes after the driver was closed");
        switch (event.kind) {
            case EventKind::kCall:
                takeCall(traced);
                break;
            case EventKind::kProperty:
                takeProperty(event);
                break;
            case EventKind::kFile:
                takeFile(event);
                break;
            case EventKind::kCustomisation:
                takeCustomisation(event);
                break;
            case EventKind::kSensor:
                if (event.name == "getAllSensorData" && !event.received.empty())
                    leaveOut("the motion samples that the hub delivered");
                break;
            default:
                break;
        }
        takeFault(traced);
        if (!phone::isCommand(event.kind) || wentNowhere(event)) return;
        mCommands.push_back(&event);
        const bool isStatus =
            event.kind == EventKind::kSubDevice && event.code == ois::code(ois::Request::kReadStatus);
        if (!isStatus || mCallers.contains(event.thread)) return;
        mPolled.insert(phone::nameOf(event));
        leaveOut("how often the driver's recorder reads the status, and between what else");
    }

    // --- The timeline.

    void takeCall(const TracedEvent& traced) {
        const Event& event = traced.event;
        mCallers.insert(event.thread);
        const bool begins = !event.result;
        const bool says = findField(event, "sensor") != nullptr;
        const int64_t sensor =
            says ? phone::integerField({.fields = event.fields}, "sensor") : mSensorDev.value_or(0);
        if (!mSensorDev) mSensorDev = sensor;
        if (sensor != *mSensorDev) return leaveOutCall(traced, fmt::format("is of sensor {}", sensor));
        if (event.name == "Init") {
            if (!begins && !mOpenedUs) mOpenedUs = event.timeUs;
            if (begins && mOpenedUs) leaveOutCall(traced, "opens the driver again");
            if (begins && !mOpenedUs) leaveOutChoices(event);
            return;
        }
        if (!begins) return;
        if (!mOpenedUs) return leaveOutCall(traced, "comes before the driver was opened");
        addPending();
        mEndUs = event.timeUs - *mOpenedUs;
        if (event.name == "Uninit") {
            mClosed = true;
            return;
        }
        ++mCalls;
        mPending = {{mEndUs}, oisctl::callText(event, static_cast<int32_t>(*mSensorDev))};
    }

    // What the command line says.
    void leaveOutChoices(const Event& init) {
        for (const auto& [name, option] :
             {std::pair("sensor_id", "--sensor-id"), {"module_id", "--module-id"}}) {
            const int64_t id = phone::integerField({.fields = init.fields}, name);
            if (id != 0) leaveOut(fmt::format("the {} of its opening: {} {}", name, option, id));
        }
        if (*mSensorDev != 0) leaveOut(fmt::format("its sensor: --sensor {}", *mSensorDev));
    }

    // An entry may happen several times, where nothing that stands behind it happens at the same time.
    void addEntry(int64_t timeUs, std::string text) {
        for (auto entry = mEntries.rbegin(); entry != mEntries.rend(); ++entry) {
            if (entry->text == text && entry->timesUs.back() != timeUs) {
                entry->timesUs.push_back(timeUs);
                return;
            }
            if (entry->timesUs.back() == timeUs) break;
        }
        mEntries.push_back({{timeUs}, std::move(text)});
    }

    // What the driver found during a call was there before it.
    void addState(std::string text) {
        mEntries.push_back({{mPending ? mPending->timesUs.front() : 0}, std::move(text)});
    }

    void addPending() {
        if (mPending) addEntry(mPending->timesUs.front(), std::move(mPending->text));
        mPending.reset();
    }

    void takeProperty(const Event& event) {
        const bool isText = !event.result.has_value();
        const phone::Field* const otherwise = findField(event, "default");
        const std::string value = isText ? textIn(event, "value") : fmt::format("{}", *event.result);
        const bool isDefault =
            otherwise != nullptr && (isText ? textIn(event, "default") : toText(*otherwise)) == value;
        const auto known = mProperties.find(event.name);
        if (known != mProperties.end() ? known->second == value : isDefault) {
            mProperties.emplace(event.name, value);
            return;
        }
        try {
            phone::knownProperty(event.name, value);
        } catch (const std::exception&) {
            return leaveOut(fmt::format("the property {}, which is {}", event.name, value));
        }
        const bool first = known == mProperties.end();
        mProperties[event.name] = value;
        if (first) {
            mFirstProperties[event.name] = value;
        } else {
            addState(fmt::format("set = {{ {} = {} }}\n", tomlText(event.name), tomlText(value)));
        }
    }

    void takeFile(const Event& event) {
        if (event.name != "fopen" || textIn(event, "path") != phone::kThermalFile) return;
        std::string text(event.received.begin(), event.received.end());
        if (event.error == ENOENT) text = "absent";
        if (event.error == EACCES) text = "unreadable";
        if (text == mThermal) return;
        mThermal = text;
        addState(fmt::format("thermal = {}\n", tomlText(text)));
    }

    void takeCustomisation(const Event& event) {
        if (!mModule.empty()) return;
        const std::string driverName = textIn(event, "driver_name");
        for (const phone::ModuleDescription& module : phone::shippedModules()) {
            const std::span info(reinterpret_cast<const uint8_t*>(&module.custInfo), sizeof module.custInfo);
            const bool same = module.driverName == driverName && event.received.size() >= info.size() &&
                              std::ranges::equal(info, std::span(event.received).first(info.size()));
            if (same) mModule = module.name;
        }
        if (mModule.empty() && mModuleMissing.empty()) {
            mModuleMissing = driverName;
            leaveOut(fmt::format("its module ({}): it is none that ships; name its TOML file with -m",
                                 driverName));
        }
    }

    // --- What failed.

    void takeFault(const TracedEvent& traced) {
        const Event& event = traced.event;
        Event failed = event;
        if (event.kind == EventKind::kNote && event.fault != nullptr) {
            mFaults.insert(event.fault->text);
        } else if (const auto asked = askedBy(event); asked && asked->point != FaultPoint::kProperty) {
            const uint64_t occasion = ++mReached[{asked->point, asked->key}];
            const std::string effect = effectOf(event, *asked);
            if (!effect.empty() && !asked->key.empty()) {
                addFault(fmt::format("{}.{}", placeName(asked->point), asked->key), occasion, effect);
            } else if (!effect.empty() && isCommand(event.kind)) {
                leaveOutCall(traced, "failed, and is no command that a fault can name");
            } else if (!effect.empty()) {
                addFault(std::string(placeName(asked->point)), occasion, effect);
            }
            // What the driver then throws is a failure of its own.
            if (!effect.empty() && asked->point == FaultPoint::kThreadCreate) mTally.addFailure(0, {});
            if (!effect.empty()) failed.fault = std::make_shared<const phone::Fault>();
            if (effect.empty()) failed.fault = nullptr;
        } else {
            failed.fault = nullptr;
        }
        mTally.count(failed, std::nullopt);
    }

    // Empty: it did not fail, or fails by itself on the simulated phone.
    std::string effectOf(const Event& event, const Asked& asked) {
        if (event.fault != nullptr) {
            const std::string& text = event.fault->text;
            try {
                phone::parseFault(text);
                return text.substr(text.rfind(':') + 1);
            } catch (const std::invalid_argument&) {
                return event.error != 0 ? "errno=" + phone::errorName(event.error) : "fail";
            }
        }
        if (mSimulated || event.error == 0) return {};
        if (phone::isCommand(event.kind))
            return wentNowhere(event) ? std::string() : "errno=" + phone::errorName(event.error);
        if (textIn(event, "path") == phone::kThermalFile) return {};
        leaveOut(fmt::format("{} {} failed with {}: the simulated phone's devices are its own",
                             event.name.empty() ? phone::nameOf(event) : event.name, asked.key,
                             phone::errorName(event.error)));
        return {};
    }

    // One after the other with one effect are one fault.
    void addFault(const std::string& place, uint64_t occasion, const std::string& effect) {
        auto& last = mLastFaults[{place, effect}];
        if (last.second != 0 && last.second + 1 == occasion) {
            mFaults.erase(faultText(place, last, effect));
            last.second = occasion;
        } else {
            last = {occasion, occasion};
        }
        mFaults.insert(faultText(place, last, effect));
    }
    static std::string faultText(const std::string& place, const std::pair<uint64_t, uint64_t>& occasions,
                                 const std::string& effect) {
        const auto& [first, last] = occasions;
        return first == last ? fmt::format("{}@{}:{}", place, first, effect)
                             : fmt::format("{}@{}-{}:{}", place, first, last, effect);
    }

    void leaveOut(std::string what) {
        if (std::ranges::find(mLeftOut, what) == mLeftOut.end()) mLeftOut.push_back(std::move(what));
    }
    void leaveOutCall(const TracedEvent& traced, std::string_view why) {
        const Event& event = traced.event;
        const bool isCall = event.kind == EventKind::kCall && !event.result;
        if (!isCall && (mClosed || !phone::isCommand(event.kind))) return;
        leaveOut(fmt::format("line {}: {} {}", traced.line, phone::nameOf(event), why));
    }

    // --- Text.

    std::string headText() const {
        std::string text =
            fmt::format("title = {}\n", tomlText("Recorded in " + mTrace.path.filename().string()));
        for (const std::string& left : mLeftOut) text += fmt::format("# Not told: {}\n", left);
        if (!mModule.empty()) text += fmt::format("module = {}\n", tomlText(mModule));
        return text + fmt::format("frame_rate = {}\nduration_s = {}\nonly_calls = true\n", kFrameRate,
                                  phone::numberText(secondsOf(std::max(mEndUs, kSecondUs / kFrameRate))));
    }

    std::string faultsText() const {
        std::string text;
        for (const std::string& fault : mFaults) text += fmt::format("    {},\n", tomlText(fault));
        return text.empty() ? "" : "faults = [\n" + text + "]\n";
    }

    std::string propertiesText() const {
        std::string text;
        for (const auto& [key, value] : mFirstProperties)
            text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", tomlText(key), tomlText(value));
        return text.empty() ? "" : fmt::format("properties = {{ {} }}\n", text);
    }

    static std::string entryText(const Entry& entry) {
        std::string times;
        for (const int64_t timeUs : entry.timesUs)
            times += (times.empty() ? "" : ", ") + phone::numberText(secondsOf(timeUs));
        if (entry.timesUs.size() > 1) times = "[" + times + "]";
        return fmt::format("\n[[at]]\ns = {}\n{}", times, entry.text);
    }

    // --- Expectations.

    using Outcome = std::pair<int64_t, int>;  // result, errno

    // "result=0", or "error=EIO".
    static std::string outcomeText(const Outcome& outcome) {
        const auto& [result, error] = outcome;
        return error != 0 ? "error=" + phone::errorName(error) : fmt::format("result={}", result);
    }

    std::string expectationsText() {
        std::map<std::string, std::map<Outcome, uint64_t>> commands;
        std::vector<std::string> order, orderOfNames;
        const auto append = [](std::vector<std::string>& to, const std::string& step) {
            if (to.empty() || to.back() != step) to.push_back(step);
        };
        for (const Event* event : mCommands) {
            const std::string name = phone::nameOf(*event);
            if (name.find(' ') != std::string::npos) continue;  // no command that has a name
            ++commands[name][{event->result.value_or(0), event->error}];
            if (mPolled.contains(name)) continue;
            append(orderOfNames, name);
            append(order, stepText(*event, name));
        }
        std::string text;
        for (const auto& [name, outcomes] : commands) text += commandText(name, outcomes);
        if (order.size() > kMostInOrder) order = std::move(orderOfNames);
        if (order.size() > kMostInOrder) {
            leaveOut(fmt::format("the order of its commands, which changes {} times", order.size()));
        } else if (order.size() > 1) {
            text += expectation("order = [\n" + listed(order) + "]\n");
        }
        return text + expectation(fmt::format("failures = {}\n", mTally.counts().failures));
    }

    // "SET_MODE mode=2": a command with what it says, as far as that is a number or two.
    static std::string stepText(const Event& event, const std::string& name) {
        constexpr size_t kMostFields = 2;
        const std::vector<phone::Field> fields = phone::decode(event).fields;
        std::string text = name;
        if (fields.size() > kMostFields) return text;
        for (const phone::Field& field : fields)
            if (const auto* number = std::get_if<int64_t>(&field.value); number != nullptr && !field.hex)
                text += fmt::format(" {}={}", field.name, *number);
        return text;
    }

    std::string commandText(const std::string& name, const std::map<Outcome, uint64_t>& outcomes) {
        uint64_t count = 0;
        for (const auto& [outcome, times] : outcomes) count += times;
        const bool polled = mPolled.contains(name);
        const std::string head = fmt::format("command = \"{}\"\ncount = {}\n", name,
                                             polled ? std::string("\"1..\"") : fmt::to_string(count));
        if (outcomes.size() == 1)
            return expectation(head + fmt::format("fields = \"{}\"\n", outcomeText(outcomes.begin()->first)));
        std::string text = expectation(head);
        for (const auto& [outcome, times] : outcomes) {
            if (polled) break;
            text += expectation(
                fmt::format("command = \"{} {}\"\ncount = {}\n", name, outcomeText(outcome), times));
        }
        return text;
    }

    std::string expectation(const std::string& text) {
        ++mExpectations;
        return "\n[[expect]]\n" + text;
    }

    static std::string listed(const std::vector<std::string>& names) {
        std::string text;
        for (const std::string& name : names) text += fmt::format("    \"{}\",\n", name);
        return text;
    }

    const TraceFile& mTrace;
    std::set<std::string> mPolled;
    std::set<uint32_t> mCallers;        // threads
    bool mSimulated = false;            // what failed there without a fault fails again
    std::optional<int64_t> mSensorDev;  // the one whose driver the scenario is of
    std::optional<int64_t> mOpenedUs;
    int64_t mEndUs = 0;
    bool mClosed = false;
    uint64_t mCalls = 0;
    std::vector<Entry> mEntries;
    std::optional<Entry> mPending;  // the call under way
    std::map<std::string, std::string> mProperties, mFirstProperties;
    std::string mThermal;
    std::string mModule, mModuleMissing;
    std::map<std::pair<FaultPoint, std::string>, uint64_t> mReached;
    std::map<std::pair<std::string, std::string>, std::pair<uint64_t, uint64_t>> mLastFaults;
    std::set<std::string> mFaults;
    Tally mTally;  // of the session as it will be played
    std::vector<const Event*> mCommands;
    uint64_t mExpectations = 0;
    std::vector<std::string> mLeftOut;
};

}  // namespace

ToldScenario scenarioOf(const TraceFile& trace, const std::set<std::string>& polled) {
    return Teller(trace, polled).tell();
}

}  // namespace oisctl
