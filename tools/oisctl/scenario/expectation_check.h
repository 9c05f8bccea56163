#pragma once
// Whether a session was as its scenario expects, told from the events of its trace.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/junit.h"
#include "base/report.h"
#include "scenario/expectation.h"
#include "session/shake_meter.h"

namespace oisctl {

// What the events do not tell of a session.
struct SessionFacts {
    std::set<std::string> places;                          // of knownPlaces, those at which it ran
    double startS = 0;                                     // the scenario's time 0
    std::optional<ShakeLeft> shake;                        // what was measured
    bool shakeKnown = false;                               // a simulated lens: its true motion is known
    bool ownMotion = true;                                 // not another than the scenario's
    phone::LogLevel shownLevel = phone::LogLevel::kDebug;  // messages beyond it are in no trace
    uint64_t failures = 0;
};

struct Judgement {
    enum class Verdict { kHeld, kFailed, kNotLookedAt };
    const Expectation* expectation = nullptr;
    Verdict verdict = Verdict::kHeld;
    std::string seen{};                   // or why it was not looked at
    std::optional<phone::Event> event{};  // at which it shows, if one does
};

// Keeps what its expectations need. `expectations` must outlive it.
class ExpectationCheck {
  public:
    explicit ExpectationCheck(const std::vector<Expectation>& expectations);
    // Any thread.
    void take(const phone::Event& event);
    // In the expectations' order.
    std::vector<Judgement> judge(const SessionFacts& facts) const;

  private:
    const std::vector<Expectation>& mExpectations;
    std::set<std::string> mNames;  // commands and calls that one of them is about
    mutable std::mutex mMutex;     // of the rest
    std::vector<phone::Event> mEvents;
    std::map<phone::LogLevel, phone::Event> mFirstMessages;
};

bool allHold(const std::vector<Judgement>& judgements);
// Whether one of them says how many failures there were to be.
bool judgesFailures(const std::vector<Judgement>& judgements);
// For the report: a summary and what failed in text, all of them in JSON.
Record expectationFields(const std::vector<Judgement>& judgements);
std::vector<JunitCase> junitCases(const std::string& scenario, const std::vector<Judgement>& judgements);

}  // namespace oisctl
