#pragma once
// A run of the checks over one node.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "compliance/finding.h"
#include "compliance/sub_device.h"
#include "trace/decode.h"
#include "wire/records.h"

namespace oisctl {

// Behind the greatest fraction of a second in a status, in microseconds.
constexpr uint64_t kFractionEnd = 1'000'000;

inline bool anyRequest(const phone::RequestInfo&) {
    return true;
}

class Examination {
  public:
    explicit Examination(const Subject& subject) : mSubject(subject) {}

    const Subject& subject() const { return mSubject; }
    // An open node whose module is set up, as a phone does after it has opened it.
    void setUp(const SubDevice& device) const;

    // Whether the request was seen to be answered.
    void noteAnswered(ois::Request request) { mAnswered.push_back(request); }
    bool answered(ois::Request request) const;

    // That there is nothing to ask any more.
    void noteGone() { mGone = true; }
    bool gone() const { return mGone; }

    // A record that can be sent without harm; of requests that write, what is there already.
    std::vector<std::byte> harmlessRecord(const SubDevice& device, const phone::RequestInfo& request);

    // What a probe saw of one request: empty when that is as it should be.
    using Probe = std::function<std::string(SubDevice&, const phone::RequestInfo&)>;
    // Each of those that were answered, and `chosen`.
    Finding overRequests(bool (*chosen)(const phone::RequestInfo&), std::string_view expected,
                         const Probe& probe);

    // Where READ_FLASH is told that there is room.
    ois::OisFlashRecord& flashRoom() { return mFlashRoom; }

  private:
    const Subject& mSubject;
    std::vector<ois::Request> mAnswered;
    bool mGone = false;
    ois::OisFlashRecord mFlashRoom{};
};

// The first of a list, and how many more there are.
std::string shortened(std::vector<std::string> list);

struct Check {
    std::string_view group;
    std::string name;
    std::function<Finding(Examination&)> run;
    std::vector<ois::Request> needs{};  // requests that have to be answered for it
    bool needsModule = false;
    bool writes = false;  // calibration
    bool always = false;  // also after a signal
};

struct Result {
    std::string_view group;
    std::string name;
    Finding finding;
};

// In the order in which they are made.
std::vector<Check> requestChecks();
std::vector<Check> recordChecks();
std::vector<Check> codeChecks();
std::vector<Check> sessionChecks();
std::vector<Check> answerChecks();
std::vector<Check> lensChecks();

// All checks. At the end, also after a signal, stabilisation is off and no target held.
std::vector<Result> examine(const Subject& subject,
                            const std::function<void(size_t done, size_t all)>& progress);

}  // namespace oisctl
