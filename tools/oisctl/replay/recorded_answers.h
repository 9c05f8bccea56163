#pragma once
// Kernel, hub and platform as a trace has them: what the driver asks is answered as recorded.

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "capture/trace_file.h"
#include "phone.h"

namespace oisctl {

// What an event asks, named as faults name it.
struct Asked {
    phone::FaultPoint point;
    std::string key;
};
// Empty for what is no question.
std::optional<Asked> askedBy(const phone::Event& event);
// How a fault at such a point begins: "request".
std::string_view placeName(phone::FaultPoint point);

// Something that the driver asked and the trace has no answer to.
struct Unanswered {
    uint32_t thread = 0;
    std::string asked;  // "request READ_GAIN"
};

// Answers in the order of the recording, thread by thread and for each thing that can be asked by itself: a
// driver that asks in another order still gets its answers, and what differs is found by holding the traces
// beside each other. Any thread may ask.
class RecordedAnswers {
  public:
    // Answers on `phone` from now on; both must outlive it. `polled`: names of requests and hub commands
    // whose number depends on time; their last answer stands for any further one.
    RecordedAnswers(phone::Phone& phone, const TraceFile& trace, const std::set<std::string>& polled);
    ~RecordedAnswers();
    RecordedAnswers(const RecordedAnswers&) = delete;
    RecordedAnswers& operator=(const RecordedAnswers&) = delete;

    // Whether each thread but the caller's has had all answers that stand before the trace's line.
    bool allGivenBefore(size_t line) const;
    // The first of them.
    std::optional<Unanswered> unanswered() const;

  private:
    struct Queue {
        std::vector<const TracedEvent*> events;
        size_t next = 0;
    };
    using Place = std::tuple<uint32_t, phone::FaultPoint, std::string>;  // thread, what is asked, its name

    std::optional<phone::FaultEffect> answer(phone::FaultPoint point, std::string_view key,
                                             std::span<const uint8_t> sent);
    // The next recorded one; null when there is none.
    const phone::Event* take(const Place& place);
    phone::FaultEffect answerOf(phone::FaultPoint point, const phone::Event& event);
    std::optional<phone::FaultEffect> prepare(phone::FaultPoint point, const phone::Event& event);
    void fitModule(const phone::Event& event);

    phone::Phone& mPhone;
    const std::set<std::string>& mPolled;
    std::set<phone::FaultPoint> mRecorded;  // what the trace knows of
    mutable std::mutex mMutex;              // of the rest
    std::map<Place, Queue> mQueues;
    std::optional<Unanswered> mUnanswered;
};

}  // namespace oisctl
