#include "session/trace_output.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>

#include "base/errors.h"
#include "base/terminal.h"
#include "base/units.h"
#include "session/tally.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;

namespace {

constexpr size_t kTimeColumns = 10;

std::string timeColumn(int64_t timeUs) {
    return styled(Style::kDim,
                  fmt::format("{:{}.4f} s", static_cast<double>(timeUs) * kSecondsPerUs, kTimeColumns));
}

bool failed(const Event& event) {
    return event.fault != nullptr || event.result.value_or(0) < 0;
}

bool isRepeat(const Event& event, const Event& last) {
    return event.kind == last.kind && event.code == last.code && event.sent == last.sent &&
           event.received == last.received && event.result == last.result && event.error == last.error &&
           event.fault == last.fault;
}

}  // namespace

TraceOutput::TraceOutput(const Settings& settings, Narration narration)
    : mFileName(settings.traceFile), mVerbose(settings.verbose), mRealKernel(settings.realKernel) {
    if (settings.traceWanted && !mFileName.empty()) {
        mFile.open(mFileName);
        if (!mFile) throw InputError("--trace=" + mFileName + ": cannot be written: " + std::strerror(errno));
    }
    if (settings.traceWanted && mFileName.empty()) {
        mTerminal = settings.json ? Terminal::kJson : Terminal::kText;
    } else if (!settings.json && !settings.quiet) {
        const bool calls = narration == Narration::kCalls || (narration == Narration::kIfVerbose && mVerbose);
        if (calls) mTerminal = Terminal::kCalls;
        if (narration == Narration::kCommands) mTerminal = Terminal::kCommands;
    }
}

TraceOutput::~TraceOutput() {
    endRepeats();
}

void TraceOutput::begin(const std::vector<phone::Field>& about) {
    std::vector<phone::Field> fields{{"recorder", std::string("oisctl")},
                                     {"kernel", std::string(mRealKernel ? "real" : "simulated")}};
    fields.insert(fields.end(), about.begin(), about.end());
    const std::string head = phone::traceHead(fields);
    if (mFile.is_open()) mFile << head << '\n';
    if (mTerminal == Terminal::kJson) printLine(head);
}

void TraceOutput::show(const Event& event, const std::optional<EndedCall>& ended) {
    if (mFile.is_open()) mFile << toJson(event) << '\n';
    switch (mTerminal) {
        case Terminal::kNothing:
            break;
        case Terminal::kText:
            printLine(toText(event));
            break;
        case Terminal::kJson:
            printLine(toJson(event));
            break;
        case Terminal::kCommands:
        case Terminal::kCalls:
            narrate(event, ended);
            break;
    }
}

void TraceOutput::narrate(const Event& event, const std::optional<EndedCall>& ended) {
    const bool isNote = event.kind == EventKind::kNote || event.fault != nullptr;
    if (phone::isCommand(event.kind)) {
        printCommand(event);
    } else if (event.kind == EventKind::kCall && mTerminal == Terminal::kCalls) {
        narrateCall(event, ended);
    } else if (isNote || (mVerbose && event.kind == EventKind::kMessage)) {
        const std::string text = toText(event, false);
        printOther(event, "    " + styled(isNote ? Style::kWarning : Style::kDim, text));
    }
}

// Why a call sent nothing, the driver itself says, if anybody.
void TraceOutput::narrateCall(const Event& event, const std::optional<EndedCall>& ended) {
    if (!ended) {
        printOther(event, styled(Style::kBold, callText(event)));
    } else if (ended->sentNothing()) {
        const std::string reason = ended->lastMessage.empty() ? "" : ": " + ended->lastMessage;
        printOther(event, "    " + styled(Style::kDim, "nothing sent" + reason));
    }
}

void TraceOutput::printOther(const Event& event, const std::string& text) {
    endRepeats();
    mLast.reset();
    printLine(timeColumn(event.timeUs) + "  " + text);
}

void TraceOutput::printCommand(const Event& event) {
    if (mLast && isRepeat(event, *mLast)) {
        ++mRepeats;
        return;
    }
    endRepeats();
    mLast = event;
    const std::string text = shortened(toText(event, false));
    printLine(timeColumn(event.timeUs) + "    " + styled(failed(event) ? Style::kBad : Style::kPlain, text));
}

void TraceOutput::endRepeats() {
    if (mRepeats == 0) return;
    const std::string times = mRepeats == 1 ? "once more" : grouped(mRepeats) + " times more";
    printLine(std::string(kTimeColumns + 6, ' ') + styled(Style::kDim, "... the same " + times));
    mRepeats = 0;
}

void TraceOutput::finish() {
    endRepeats();
    if (!mFile.is_open()) return;
    mFile.close();
    if (!mFile) throw JobError("--trace=" + mFileName + ": the trace could not be written completely");
}

}  // namespace oisctl
