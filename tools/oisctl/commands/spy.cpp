// oisctl spy: what passes between any program and the controller.

#include <fmt/format.h>

#include <fstream>
#include <memory>
#include <set>

#include "base/errors.h"
#include "base/report.h"
#include "base/suggest.h"
#include "capture/spied_program.h"
#include "capture/trace_file.h"
#include "commands/commands.h"
#include "session/settings.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

struct SpyOptions {
    std::vector<std::string> program;
    std::string file = "spy.jsonl";
    Settings settings;
};

// What one process left.
struct Captured {
    fs::path file;
    TraceFile trace;
    uint64_t requests = 0;
    uint64_t calls = 0;
    uint64_t threads = 0;
    uint64_t lost = 0;
    bool cut = false;  // more was lost than anybody counted
};

Captured captured(const fs::path& file) {
    Captured found{.file = file, .trace = loadTrace(file)};
    std::set<uint32_t> threads;
    for (const auto& [line, event] : found.trace.events) {
        threads.insert(event.thread);
        if (phone::isCommand(event.kind)) ++found.requests;
        if (event.kind == phone::EventKind::kCall && event.result) ++found.calls;
        const phone::Field* const lost =
            event.kind == phone::EventKind::kNote ? phone::findField(event, "events") : nullptr;
        if (lost != nullptr) found.lost += std::get<uint64_t>(lost->value);
    }
    found.threads = threads.size();
    found.cut = endsEarly(file);
    return found;
}

uint64_t sumOf(const std::vector<Captured>& all, uint64_t Captured::*count) {
    uint64_t sum = 0;
    for (const Captured& one : all) sum += one.*count;
    return sum;
}

std::string sentence(const SpyOptions& options, const std::vector<Captured>& all, const SpiedRun& run) {
    if (all.empty()) {
        return fmt::format(
            "oisctl spy: captured nothing: {} made no private request that the library could see; it "
            "cannot go into a program that is linked statically or changes its user",
            options.program.front());
    }
    const std::vector<std::string> files =
        namesIn(all, [](const Captured& one) { return one.file.string(); });
    std::string text = fmt::format("oisctl spy: requests {}, calls of the driver {}, threads {}: {}",
                                   sumOf(all, &Captured::requests), sumOf(all, &Captured::calls),
                                   sumOf(all, &Captured::threads), joined(files));
    if (const uint64_t lost = sumOf(all, &Captured::lost); lost != 0)
        text += fmt::format("; events lost {}", lost);
    for (const Captured& one : all)
        if (one.cut)
            text += fmt::format("; {} could not be written any further: it ends early", one.file.string());
    if (run.othersRunning) text += "; processes that it left behind still run and write";
    return text;
}

Record reportOf(const std::vector<Captured>& all, const SpiedRun& run) {
    Table traces;
    for (const Captured& one : all) {
        traces.push_back({{"file", "", one.file.string()},
                          {"requests", "", one.requests},
                          {"calls", "", one.calls},
                          {"threads", "", one.threads},
                          {"events_lost", "", one.cut ? Value() : Value(one.lost)},
                          {"ends_early", "", one.cut}});
    }
    return {{"exit_status", "", run.exitStatus},
            {"still_running", "", run.othersRunning},
            {"requests", "", sumOf(all, &Captured::requests)},
            {"calls", "", sumOf(all, &Captured::calls)},
            {"traces", "", traces}};
}

void requirePlace(const fs::path& trace) {
    std::error_code ignored;
    const fs::file_status status = fs::status(trace, ignored);
    if (fs::exists(status) && !fs::is_regular_file(status))
        throw InputError(fmt::format("-o {}: is no regular file; name one", trace.string()));
    const fs::path folder = fs::absolute(trace).parent_path();
    if (!fs::is_directory(folder))
        throw InputError(fmt::format("-o {}: there is no folder {}", trace.string(), folder.string()));
    std::string line;
    std::ifstream before(trace);
    if (std::getline(before, line) && !line.starts_with(R"({"kind":"trace")"))
        throw InputError(
            fmt::format("-o {}: is no trace, and would be lost; name another file", trace.string()));
}

// The program begins a new trace in a new file. A trace that stands there is put aside, and back when nothing
// came in its place.
class MakeRoom {
  public:
    explicit MakeRoom(const fs::path& trace) : mTrace(trace), mBefore(trace.string() + ".before") {
        requirePlace(trace);
        std::error_code error;
        if (fs::exists(trace)) {
            appendPendingLines(trace);
            fs::rename(trace, mBefore, error);
        }
        if (!error) removeTrace(trace, error);
        if (error) throw InputError(fmt::format("-o {}: {}", trace.string(), error.message()));
    }
    ~MakeRoom() {
        std::error_code ignored;
        if (fs::exists(mTrace, ignored)) {
            fs::remove(mBefore, ignored);
        } else {
            fs::rename(mBefore, mTrace, ignored);
        }
    }
    MakeRoom(const MakeRoom&) = delete;
    MakeRoom& operator=(const MakeRoom&) = delete;

  private:
    const fs::path mTrace;
    const fs::path mBefore;
};

int runSpy(const SpyOptions& options) {
    const fs::path trace = options.file;
    const MakeRoom room(trace);
    const std::vector<fs::path> before = spiedTraces(trace);
    const SpiedRun run = runSpied(options.program, trace);
    std::vector<Captured> all;
    bool unreadable = false;
    for (const fs::path& file : spiedTraces(trace)) {
        if (std::ranges::find(before, file) != before.end()) continue;
        if (!run.othersRunning) appendPendingLines(file);
        try {
            all.push_back(captured(file));
        } catch (const InputError& error) {
            // A full disk has cut it, or it is too large to be looked through here.
            printRemark(fmt::format("oisctl spy: {}", error.what()));
            unreadable = true;
        }
    }
    if (options.settings.json) {
        print(reportOf(all, run), true);
    } else if (!all.empty() || !unreadable) {
        printRemark(sentence(options, all, run));
    }
    return run.exitStatus;
}

}  // namespace

Command describeSpy() {
    auto options = std::make_shared<SpyOptions>();
    return {
        .options = {value("-o,--output", "FILE",
                          "The trace; further processes' stand beside it, with their numbers",
                          &options->file),
                    value("program", "PROGRAM", "What to run, with its arguments behind '--'",
                          &options->program, {.required = true, .repeats = true}),
                    jsonOption(options->settings)},
        .notes =
            "The exit status is the program's own, and so are its input and output. What was captured is "
            "said on\n"
            "standard error, or with --json behind the program's own output.\n",
        .examples = {{"oisctl spy -- v4l2-ctl -d /dev/v4l-subdev3 --all"},
                     {"oisctl spy -o camera.jsonl -- ./camera-service --once"},
                     {"oisctl decode --file camera.jsonl", "the same in words"}},
        .run = [options] { return runSpy(*options); },
    };
}

}  // namespace oisctl
