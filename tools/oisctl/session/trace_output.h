#pragma once
// Shows the trace: the commands on the terminal, or everything, there or in a file.

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

#include "session/calls.h"
#include "session/settings.h"
#include "trace/trace.h"

namespace oisctl {

// What stands on the terminal when no trace is asked for.
enum class Narration {
    kNothing,
    kCommands,   // the commands that reach the controller
    kCalls,      // the same, each under the call that sent it
    kIfVerbose,  // that, with --verbose; else nothing
};

class TraceOutput {
  public:
    // Throws InputError when the trace's file cannot be written.
    TraceOutput(const Settings& settings, Narration narration);
    ~TraceOutput();
    TraceOutput(const TraceOutput&) = delete;
    TraceOutput& operator=(const TraceOutput&) = delete;

    // What the trace is of, beside its kernel.
    void begin(const std::vector<phone::Field>& about);
    // Events in order, one at a time, each with the call that ended with it, if any.
    void show(const phone::Event& event, const std::optional<EndedCall>& ended);
    // Throws JobError when the file could not be written completely.
    void finish();

  private:
    enum class Terminal { kNothing, kCommands, kCalls, kText, kJson };

    void narrate(const phone::Event& event, const std::optional<EndedCall>& ended);
    void narrateCall(const phone::Event& event, const std::optional<EndedCall>& ended);
    void printOther(const phone::Event& event, const std::string& text);
    void printCommand(const phone::Event& event);
    void endRepeats();

    std::ofstream mFile;
    std::string mFileName;
    const bool mVerbose;
    const bool mRealKernel;
    Terminal mTerminal = Terminal::kNothing;
    std::optional<phone::Event> mLast;  // a command; its repeats are counted, not shown
    uint64_t mRepeats = 0;
};

}  // namespace oisctl
