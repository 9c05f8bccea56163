#include "capture/spied_program.h"

#include <dlfcn.h>
#include <fmt/core.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"
#include "trace/trace.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

constexpr const char* kLibrary = "libois_spy.so";
constexpr const char* kPreload = "LD_PRELOAD";
constexpr const char* kTraceVariable = "OIS_SPY_TRACE";

volatile pid_t gProgram = 0;

extern "C" void passOn(int signal) {
    if (gProgram > 0) kill(gProgram, signal);
}

// While one lives, what is meant to end this process ends the program. The keyboard reaches the program
// anyway.
class SignalsPassedOn {
  public:
    SignalsPassedOn() {
        for (size_t i = 0; i < kSignals.size(); ++i) {
            struct sigaction action {};
            action.sa_handler = kSignals[i].fromKeyboard ? SIG_IGN : passOn;
            sigaction(kSignals[i].signal, &action, &mBefore[i]);
        }
    }
    ~SignalsPassedOn() {
        for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i].signal, &mBefore[i], nullptr);
    }
    SignalsPassedOn(const SignalsPassedOn&) = delete;
    SignalsPassedOn& operator=(const SignalsPassedOn&) = delete;

  private:
    struct Passed {
        int signal;
        bool fromKeyboard;
    };
    static constexpr std::array kSignals = {Passed{SIGINT, true}, Passed{SIGQUIT, true},
                                            Passed{SIGTERM, false}, Passed{SIGHUP, false}};
    std::array<struct sigaction, kSignals.size()> mBefore{};
};

std::vector<std::string> environmentFor(const fs::path& trace) {
    const char* const before = std::getenv(kPreload);
    std::string preload = std::string(kPreload) + "=" + spyLibrary().string();
    if (before != nullptr && *before != '\0') preload += std::string(":") + before;
    std::vector<std::string> all = {preload,
                                    std::string(kTraceVariable) + "=" + fs::absolute(trace).string()};
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text(*variable);
        const std::string_view name = text.substr(0, text.find('='));
        if (name != kPreload && name != kTraceVariable) all.emplace_back(text);
    }
    return all;
}

std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

pid_t start(std::vector<std::string> words, const fs::path& trace) {
    std::vector<std::string> environment = environmentFor(trace);
    pid_t program = 0;
    const int error = posix_spawnp(&program, words.front().c_str(), nullptr, nullptr,
                                   pointersTo(words).data(), pointersTo(environment).data());
    if (error != 0)
        throw InputError(fmt::format("{}: cannot be run: {}", words.front(), std::strerror(error)));
    return program;
}

int waitFor(pid_t program) {
    int status = 0;
    while (waitpid(program, &status, 0) < 0) {
        if (errno != EINTR) throw JobError(fmt::format("waiting for the program: {}", std::strerror(errno)));
    }
    constexpr int kSignalBase = 128;
    return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

// Whatever a program leaves behind has become this process's own child.
bool othersRun() {
    pid_t ended = 0;
    do {
        ended = waitpid(-1, nullptr, WNOHANG);
    } while (ended > 0);
    return ended == 0;
}

// "NAME", "NAME.4711", "NAME.4711.2"
bool isTraceOf(const fs::path& trace, const fs::path& file) {
    const std::string name = file.filename().string();
    const std::string first = trace.filename().string();
    if (!name.starts_with(first)) return false;
    const std::string_view rest = std::string_view(name).substr(first.size());
    return rest.empty() ||
           (rest.front() == '.' && rest.find_first_not_of(".0123456789") == std::string_view::npos);
}

}  // namespace

fs::path spyLibrary() {
    Dl_info phone{};
    dladdr(reinterpret_cast<const void*>(&phone::traceHead), &phone);
    const fs::path library = fs::path(phone.dli_fname).parent_path() / kLibrary;
    if (!fs::exists(library)) throw JobError(library.string() + ": the capture library is not there");
    return fs::absolute(library);
}

SpiedRun runSpied(const std::vector<std::string>& program, const fs::path& trace) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    gProgram = start(program, trace);
    SpiedRun run;
    {
        const SignalsPassedOn passed;
        run.exitStatus = waitFor(gProgram);
    }
    gProgram = 0;
    run.othersRunning = othersRun();
    return run;
}

std::vector<fs::path> spiedTraces(const fs::path& trace) {
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::absolute(trace).parent_path()))
        if (isTraceOf(trace, entry.path())) found.push_back(trace.parent_path() / entry.path().filename());
    std::ranges::sort(found);
    return found;
}

}  // namespace oisctl
