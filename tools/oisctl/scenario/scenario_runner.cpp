#include "scenario/scenario_runner.h"

#include <atomic>
#include <cmath>

#include "base/terminal.h"
#include "base/units.h"
#include "kernel/file_tree.h"
#include "motion/motion.h"
#include "replay/driver_calls.h"
#include "session/calls.h"
#include "session/detector_run.h"
#include "session/shake_meter.h"

namespace oisctl {

namespace {

class Player {
  public:
    Player(DriverSession& session, const Scenario& scenario)
        : mSession(session), mScenario(scenario), mShake(session), mCheck(scenario.expectations) {
        mObservation = session.observe([this](const phone::Event& event) {
            mCheck.take(event);
            if (setsMode(event)) mModeTaken = wasDelivered(event);
        });
    }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Summary play() {
        const bool supported = mSession.open();
        if (supported && !mScenario.onlyCalls) mSession.waitForBringUp();
        mFacts.places = places();
        if (supported && !mScenario.drivesStream()) setStream(true);
        // Without a channel nothing of it arrives, which takes time to find out where time is real.
        mFacts.startS = mSession.nowS();
        if (mScenario.onlyCalls) {
            makeCalls();
        } else if (mSession.channelIsUp() || !mSession.settings().inRealTime()) {
            playFrames();
        }
        if (mScenario.onlyCalls) {
            mSession.closeAsItIs();
        } else {
            if (mStreaming) setStream(false);
            mSession.close();
        }

        mSummary.scenario = mScenario.name;
        mSummary.shake = mShake.result();
        mSummary.judgements = mCheck.judge(facts());
        return mSummary;
    }

  private:
    // Which records go over the hub, the driver itself says once it is open.
    std::set<std::string> places() {
        std::set<std::string> all{mSession.module().name};
        if (onSubDevice(mSession.module())) all.insert("sub-device");
        if (onHub(mSession.module()))
            all.insert({"hub", mSession.driver().mUseCustomCmd != 0 ? "hub-records" : "hub-registers"});
        return all;
    }

    const SessionFacts& facts() {
        const Settings& settings = mSession.settings();
        const bool logs = settings.debugLog || settings.unifiedLog;
        mFacts.shake = mSummary.shake;
        mFacts.shakeKnown = mSession.stabiliser() != nullptr;
        mFacts.ownMotion = mScenario.motion == nullptr || mSession.settings().motion.empty();
        mFacts.shownLevel = logs ? settings.logLevel : phone::LogLevel::kOff;
        mFacts.failures = mSession.tally().counts().failures;
        return mFacts;
    }

    void playFrames() {
        const int64_t startUs = mSession.nowUs();
        const uint64_t frames = mScenario.frames();
        Progress progress(mScenario.name, static_cast<double>(frames));
        for (mFrame = 0; mFrame < frames && !mSession.endsEarly(); ++mFrame) {
            const double timeS = mScenario.frameTimeS(mFrame);
            mShake.sleepUntil(startUs + std::llround(timeS * kMicrosPerSecond));
            applyMoments(timeS);
            applyTemperature(timeS);
            sendFocus(timeS);
            sendRequest(timeS);
            noteMode();
            progress.update(static_cast<double>(mFrame), "frame " + std::to_string(mFrame));
        }
    }

    void makeCalls() {
        const int64_t startUs = mSession.nowUs();
        const auto sleepUntil = [&](double timeS) {
            const int64_t timeUs = startUs + std::llround(timeS * kMicrosPerSecond);
            mShake.sleepUntil(timeUs);
            // Threads of the driver that have something to do by then come first, also where that is now.
            if (!mSession.endsEarly()) mSession.phone().clock().sleepUntilUs(timeUs);
        };
        for (const Moment& moment : mScenario.moments) {
            sleepUntil(moment.atS);
            if (mSession.endsEarly()) return;
            apply(moment);
            noteMode();
        }
        sleepUntil(mScenario.durationS);
    }

    void applyMoments(double timeS) {
        while (mNextMoment < mScenario.moments.size() &&
               mScenario.moments[mNextMoment].atS <= timeS + kFrameSlackS) {
            apply(mScenario.moments[mNextMoment++]);
        }
    }

    void apply(const Moment& moment) {
        if (moment.clearFaults) mSession.clearFaults();
        for (const phone::Fault& fault : moment.faults) mSession.addFault(fault);
        for (const phone::Property& property : moment.properties) mSession.phone().properties().set(property);
        if (moment.motion) mSession.phone().motion().set(moment.motion);
        if (moment.thermal) setThermal(*moment.thermal);
        if (moment.stream) setStream(*moment.stream);
        if (moment.sensorMode) mSession.setSensorMode(*moment.sensorMode);
        if (moment.dynamic) mSession.enableOis(*moment.dynamic);
        if (moment.mode) mSession.setMode(*moment.mode);
        if (moment.operation) {
            carryOut(mSession, *moment.operation, [&] {
                mSummary.operations.push_back({*moment.operation, mSession.setOperation(*moment.operation)});
            });
        }
        if (moment.checkStatus) mSession.checkStatus();
        if (moment.request) request(Scenario::requestOf(moment, mSession.settings().sensorDev));
        if (moment.call) call(*moment.call);
    }

    void call(phone::Event event) {
        std::vector<uint8_t> record = event.sent;
        mSession.call(
            event.name.c_str(), event.fields,
            [&] {
                makeCall(mSession.driver(), event);
                if (event.received.size() == record.size()) record = event.received;
                return static_cast<int32_t>(event.result.value_or(0));
            },
            record);
    }

    void applyTemperature(double timeS) {
        const std::optional<double> value = mScenario.value("temperature_c", timeS);
        if (!value) return;
        const long degrees = std::lround(*value);
        if (mTemperature == degrees) return;
        mTemperature = degrees;
        mSession.phone().files().setThermal(std::to_string(degrees) + "\n");
    }

    void setThermal(const Thermal& thermal) {
        phone::FileTree& files = mSession.phone().files();
        mTemperature.reset();
        switch (thermal.kind) {
            case Thermal::Kind::kAbsent:
                return files.setThermalAbsent();
            case Thermal::Kind::kUnreadable:
                return files.setThermalUnreadable();
            case Thermal::Kind::kHolds:
                return files.setThermal(thermal.text);
        }
    }

    void sendFocus(double timeS) {
        const std::optional<double> distance = mScenario.value("focus_distance_mm", timeS);
        const std::optional<double> diopter = mScenario.value("focus_diopter", timeS);
        if (distance || diopter) {
            ois_focus_params focus{};
            focus.distanceValid = distance ? 1 : 0;
            focus.distance = static_cast<int32_t>(distance.value_or(0));
            focus.useFocus = diopter ? 1 : 0;
            focus.focusDiopter = static_cast<float>(diopter.value_or(0));
            mSession.setFocus(focus);
        }
        if (const auto position = mScenario.value("af_position", timeS)) {
            mSession.setAfPosition(static_cast<int32_t>(*position));
        }
    }

    void sendRequest(double timeS) {
        if (mScenario.value("requests", timeS) == 0) return;
        request(mScenario.requestAt(timeS, mSession.settings().sensorDev));
    }

    void request(ois_params params) {
        ++mSummary.requests;
        carryOut(mSession, params.engineer_operation, [&] { mSession.setParams(params); });
        if (params.op_result_ptr != nullptr)
            mSummary.operations.push_back({params.engineer_operation, params.op_result});
    }

    void noteMode() {
        if (mSession.driver().mIsOisSupport == 0) return;
        const int32_t mode = mSession.driver().mOisMode;
        std::vector<ModeSpan>& modes = mSummary.modes;
        const bool taken = mModeTaken;
        if (modes.empty() || modes.back().mode != mode || modes.back().taken != taken)
            modes.push_back({mode, taken, mFrame, mFrame});
        modes.back().lastFrame = mFrame;
    }

    void setStream(bool on) {
        mSession.notifyStream(on);
        mStreaming = on;
    }

    DriverSession& mSession;
    const Scenario& mScenario;
    ShakeMeter mShake;
    size_t mNextMoment = 0;
    uint64_t mFrame = 0;
    bool mStreaming = false;
    std::atomic<bool> mModeTaken{true};  // the last one that was asked for
    std::optional<long> mTemperature;
    ExpectationCheck mCheck;
    SessionFacts mFacts;
    Summary mSummary;
    DriverSession::Observation mObservation;  // ends before what it fills
};

}  // namespace

Settings withScenario(Settings settings, const Scenario& scenario) {
    if (settings.module.empty()) settings.module = scenario.module;
    settings.presets = scenario.properties;
    settings.faults.insert(settings.faults.begin(), scenario.faults.begin(), scenario.faults.end());
    return settings;
}

Summary runScenario(DriverSession& session, const Scenario& scenario) {
    return Player(session, scenario).play();
}

}  // namespace oisctl
