#include "scenario/expectation_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/suggest.h"
#include "base/terminal.h"
#include "base/units.h"
#include "session/calls.h"

namespace oisctl {

using phone::Event;

namespace {

double secondsOf(const Event& event) {
    return static_cast<double>(event.timeUs) * kSecondsPerUs;
}

// An event with what its bytes mean.
struct Seen {
    const Event* event;
    phone::Decoded decoded;
};

std::vector<Seen> selected(const std::vector<Seen>& events, const Selector& selector) {
    std::vector<Seen> chosen;
    std::ranges::copy_if(events, std::back_inserter(chosen), [&selector](const Seen& seen) {
        return selects(selector, *seen.event, seen.decoded);
    });
    return chosen;
}

// Judges one expectation.
class Judge {
  public:
    Judge(const Expectation& expectation, const SessionFacts& facts, const std::vector<Seen>& events,
          const std::map<phone::LogLevel, Event>& firstMessages)
        : mExpectation(expectation), mFacts(facts), mAll(events), mFirstMessages(firstMessages) {
        mJudgement.expectation = &expectation;
        if (!expectation.selector) return;
        mSelected = selected(mAll, *expectation.selector);
        std::erase_if(mSelected, [this](const Seen& seen) {
            return !mExpectation.timeS.hold(secondsOf(*seen.event) - mFacts.startS);
        });
    }

    Judgement judge() {
        const std::vector<std::string>& on = mExpectation.on;
        const bool concerned = on.empty() || std::ranges::any_of(on, [this](const std::string& place) {
                                   return mFacts.places.contains(place);
                               });
        if (!concerned) {
            notLookedAt("it is for " + joined(on));
        } else {
            std::visit([this](const auto& what) { look(what); }, mExpectation.what);
        }
        return std::move(mJudgement);
    }

  private:
    void look(const ExpectedCount& what) {
        const auto count = mSelected.size();
        if (what.count.hold(static_cast<double>(count))) return;
        // The first too many, or the last that there was.
        const bool many = static_cast<double>(count) > what.count.greatest;
        const Event* at = nullptr;
        if (many) at = mSelected[static_cast<size_t>(what.count.greatest)].event;
        if (!many && count > 0) at = mSelected.back().event;
        failed(count == 0 ? "none" : fmt::format("{}; {}", count, many ? "one too many" : "the last"), at);
    }

    void look(const ExpectedBytes& what) {
        requireEach([&what](const Seen& seen) {
            return (what.sent ? seen.event->sent : seen.event->received) == what.bytes;
        });
    }

    void look(const ExpectedFields& what) {
        requireEach([&what](const Seen& seen) {
            return std::ranges::all_of(what.fields, [&seen](const FieldValue& field) {
                return isAsExpected(field, *seen.event, seen.decoded);
            });
        });
    }

    void look(const ExpectedDelay& what) {
        const std::vector<Seen> before = selected(mAll, what.after);
        if (requireSome()) return;
        for (const Seen& seen : mSelected) {
            const auto isLater = [&seen](const Seen& other) {
                return other.event->sequence >= seen.event->sequence;
            };
            const auto next = std::ranges::find_if(before, isLater);
            if (next == before.begin()) return failed("none before it", seen.event);
            const double delayS = secondsOf(*seen.event) - secondsOf(*std::prev(next)->event);
            constexpr double kRounding = kSecondsPerUs / 2;
            const Bounds bounds{what.seconds.least - kRounding, what.seconds.greatest + kRounding};
            if (!bounds.hold(delayS)) return failed(fmt::format("{:.6f} s after it", delayS), seen.event);
        }
    }

    void look(const ExpectedOrder& what) {
        size_t next = 0;  // in the list
        for (const Seen& seen : mAll) {
            const auto is = [&seen](const Selector& selector) {
                return selects(selector, *seen.event, seen.decoded);
            };
            if (std::ranges::none_of(what.commands, is)) continue;
            if (next > 0 && is(what.commands[next - 1])) continue;
            if (next == what.commands.size()) return failed("behind the last of them", seen.event);
            if (!is(what.commands[next]))
                return failed(fmt::format("instead of {}", what.commands[next].text), seen.event);
            ++next;
        }
        if (next < what.commands.size())
            failed(fmt::format("no {} at the end", what.commands[next].text), nullptr);
    }

    void look(const ExpectedShake& what) {
        if (!mFacts.shakeKnown) return notLookedAt("no lens is there whose true motion is known");
        if (!mFacts.ownMotion) return notLookedAt("--motion moves the phone otherwise than the scenario");
        if (!mFacts.shake) return failed("stabilisation was not on for long enough to tell", nullptr);
        const auto value = what.relative ? mFacts.shake->changeDb() : std::optional(mFacts.shake->leftRms);
        if (!value) return failed("nothing was there to cancel", nullptr);
        if (!what.value.hold(*value))
            failed(fmt::format("{:.4g} {}", *value, what.relative ? "dB" : "deg"), nullptr);
    }

    void look(const ExpectedSilence& what) {
        const auto first = mFirstMessages.begin();  // of the most severe
        if (first != mFirstMessages.end() && first->first < what.above)
            return failed(fmt::format("level {}", name(first->first)), &first->second);
        const bool shown =
            mFacts.shownLevel != phone::LogLevel::kOff &&
            (what.above == phone::LogLevel::kInfo || mFacts.shownLevel >= phone::LogLevel::kInfo);
        if (!shown)
            notLookedAt(fmt::format("--log-level and --log-sinks let through: {}", name(mFacts.shownLevel)));
    }

    void look(const ExpectedFailures& what) {
        if (!what.count.hold(static_cast<double>(mFacts.failures)))
            failed(fmt::format("{}", mFacts.failures), nullptr);
    }

    template <typename Holds>
    void requireEach(const Holds& holds) {
        if (requireSome()) return;
        const auto other = std::ranges::find_if_not(mSelected, holds);
        if (other != mSelected.end()) failed("another", other->event);
    }
    // Whether there is none, which failed then.
    bool requireSome() {
        if (mSelected.empty()) failed("none", nullptr);
        return mSelected.empty();
    }

    void failed(std::string seen, const Event* event) {
        mJudgement.verdict = Judgement::Verdict::kFailed;
        mJudgement.seen = std::move(seen);
        if (event != nullptr) mJudgement.event = *event;
    }
    void notLookedAt(std::string why) {
        mJudgement.verdict = Judgement::Verdict::kNotLookedAt;
        mJudgement.seen = std::move(why);
    }

    const Expectation& mExpectation;
    const SessionFacts& mFacts;
    const std::vector<Seen>& mAll;
    const std::map<phone::LogLevel, Event>& mFirstMessages;
    std::vector<Seen> mSelected;
    Judgement mJudgement;
};

// The line in a file that --trace writes: its first is the head.
uint64_t lineOf(const Event& event) {
    return event.sequence + 1;
}

std::string seenText(const Judgement& judgement) {
    if (!judgement.event) return judgement.seen;
    const Event& event = *judgement.event;
    return fmt::format("{}: {} at {:.4f} s, line {} of the trace", judgement.seen,
                       shortened(phone::toText(event, false)), secondsOf(event), lineOf(event));
}

std::string_view keyOf(Judgement::Verdict verdict) {
    return verdict == Judgement::Verdict::kHeld     ? "held"
           : verdict == Judgement::Verdict::kFailed ? "failed"
                                                    : "not looked at";
}

void addNames(std::set<std::string>& names, const Expectation& expectation) {
    if (expectation.selector) names.insert(expectation.selector->name);
    if (const auto* delay = std::get_if<ExpectedDelay>(&expectation.what)) names.insert(delay->after.name);
    if (const auto* order = std::get_if<ExpectedOrder>(&expectation.what)) {
        for (const Selector& selector : order->commands) names.insert(selector.name);
    }
}

}  // namespace

ExpectationCheck::ExpectationCheck(const std::vector<Expectation>& expectations)
    : mExpectations(expectations) {
    for (const Expectation& expectation : expectations) addNames(mNames, expectation);
}

void ExpectationCheck::take(const Event& event) {
    if (event.kind == phone::EventKind::kMessage) {
        const phone::Field* const level = findField(event, "level");
        if (level == nullptr) return;
        const std::lock_guard lock(mMutex);
        mFirstMessages.emplace(phone::logLevelByName(std::get<std::string>(level->value)), event);
        return;
    }
    const bool endsCall = event.kind == phone::EventKind::kCall && event.result;
    if (!endsCall && (!phone::isCommand(event.kind) || wentNowhere(event))) return;
    if (!mNames.contains(phone::nameOf(event))) return;
    const std::lock_guard lock(mMutex);
    mEvents.push_back(event);
}

std::vector<Judgement> ExpectationCheck::judge(const SessionFacts& facts) const {
    const std::lock_guard lock(mMutex);
    std::vector<Seen> seen;
    seen.reserve(mEvents.size());
    for (const Event& event : mEvents) seen.push_back({&event, phone::decode(event)});
    std::vector<Judgement> judgements;
    for (const Expectation& expectation : mExpectations)
        judgements.push_back(Judge(expectation, facts, seen, mFirstMessages).judge());
    return judgements;
}

bool allHold(const std::vector<Judgement>& judgements) {
    return std::ranges::none_of(judgements, [](const Judgement& judgement) {
        return judgement.verdict == Judgement::Verdict::kFailed;
    });
}

bool judgesFailures(const std::vector<Judgement>& judgements) {
    return std::ranges::any_of(judgements, [](const Judgement& judgement) {
        return judgement.verdict != Judgement::Verdict::kNotLookedAt &&
               std::holds_alternative<ExpectedFailures>(judgement.expectation->what);
    });
}

Record expectationFields(const std::vector<Judgement>& judgements) {
    Table table;
    std::map<Judgement::Verdict, size_t> counts;
    std::string failures;
    for (const Judgement& judgement : judgements) {
        const std::string expected = toText(*judgement.expectation);
        const auto& event = judgement.event;
        ++counts[judgement.verdict];
        table.push_back({{"expected", "", expected},
                         {"verdict", "", keyOf(judgement.verdict)},
                         {"seen", "", judgement.seen.empty() ? Value() : Value(judgement.seen)},
                         {"event", "", event ? Value(phone::toText(*event, false)) : Value()},
                         {"time_s", "", event ? Value(secondsOf(*event)) : Value()},
                         {"trace_line", "", event ? Value(lineOf(*event)) : Value()}});
        if (judgement.verdict == Judgement::Verdict::kFailed)
            failures += fmt::format("\nexpected {}\n  seen   {}", expected, seenText(judgement));
    }
    std::string text = fmt::format("{} of {} as expected", counts[Judgement::Verdict::kHeld],
                                   counts[Judgement::Verdict::kHeld] + counts[Judgement::Verdict::kFailed]);
    if (const size_t others = counts[Judgement::Verdict::kNotLookedAt])
        text += fmt::format(", {} not looked at here", others);
    return {{"expectations", judgements.empty() ? "" : "expected", table, text + failures,
             counts[Judgement::Verdict::kFailed] == 0 ? Style::kGood : Style::kBad}};
}

std::vector<JunitCase> junitCases(const std::string& scenario, const std::vector<Judgement>& judgements) {
    using Outcome = JunitCase::Outcome;
    std::vector<JunitCase> cases;
    for (const Judgement& judgement : judgements) {
        const Outcome outcome = judgement.verdict == Judgement::Verdict::kHeld     ? Outcome::kPassed
                                : judgement.verdict == Judgement::Verdict::kFailed ? Outcome::kFailed
                                                                                   : Outcome::kSkipped;
        const std::string expected = toText(*judgement.expectation);
        const bool failed = outcome == Outcome::kFailed;
        cases.push_back(
            {scenario, expected, outcome,
             failed ? fmt::format("expected {}; seen {}", expected, seenText(judgement)) : judgement.seen});
    }
    return cases;
}

}  // namespace oisctl
