#include "trace.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace spy {

namespace {

constexpr const char* kPathVariable = "OIS_SPY_TRACE";
constexpr const char* kPendingSuffix = ".pending";
constexpr const char* kCutSuffix = ".cut";  // an empty file: what is in the trace is not all
constexpr int kTraceFormat = 1;             // the one that the reader of traces knows
constexpr size_t kPathSize = PATH_MAX;
constexpr size_t kNumbersSize = 32;  // of a process, and of its programs
constexpr size_t kPendingSize = size_t{64} * 1024;
constexpr mode_t kFileMode = 0644;
constexpr int64_t kNsPerUs = 1000;
static_assert(sizeof(long) == 8, "system calls take their offsets in one word");

// What this process has recorded. It lies in pages that the kernel clears in a child of fork, which so begins
// afresh, whatever its parent's threads were about; all zero is its first state, that of the mutex included.
struct State {
    pthread_mutex_t mutex;
    std::atomic<bool> ended;     // no more events are taken
    std::atomic<bool> stuck;     // somebody keeps the mutex
    std::atomic<uint64_t> lost;  // events since the last line
    pid_t process;               // 0: nothing was recorded yet
    uint64_t sequence;
    uint32_t threads;  // the last number that was given to one
    bool exiting;      // each line goes to the file at once
    char* pending;     // text up to the first NUL
    size_t used;
    size_t lineBegin;  // in pending
    char lineFirst;    // stands at lineBegin when the line is complete
    off_t lineBeginInFile;
    off_t written;  // length of the file
    dev_t device;   // which file that is
    ino_t inode;
    std::array<char, kPathSize + kNumbersSize> path;
    std::array<char, kPathSize + 2 * kNumbersSize> pendingPath;  // empty: lines gather in plain memory
};

State* gState = nullptr;  // null: nothing is recorded
std::array<char, kPathSize> gPath;
int64_t gStartNs = 0;

struct ThreadState {
    pid_t process = 0;  // whose trace knows the thread by that number
    uint32_t number = 0;
    bool inside = false;  // between lock and unlock
};
[[gnu::tls_model("initial-exec")]] thread_local constinit ThreadState tThread;

// --- System calls as such: nothing that the process puts in front of libc sees them, no thread is cancelled
// in them.

int openFile(const char* path, int flags) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_CLOEXEC, kFileMode));
}

void closeFile(int fd) {
    syscall(SYS_close, fd);
}

// What a file may still grow by, so that no signal tells the process of its limit.
size_t roomFor(off_t length, size_t wanted) {
    rlimit limit{};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return wanted;
    const auto at = static_cast<rlim_t>(length);
    return at >= limit.rlim_cur ? 0 : static_cast<size_t>(std::min<rlim_t>(wanted, limit.rlim_cur - at));
}

// How much of it was written.
size_t writeAll(int fd, off_t length, std::string_view text) {
    const size_t room = roomFor(length, text.size());
    size_t done = 0;
    while (done < room) {
        const long count = syscall(SYS_write, fd, text.data() + done, room - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<size_t>(count);
    }
    return done;
}

// --- Lines gather.

void removePending(State& state) {
    if (state.pendingPath[0] == '\0') return;
    unlink(state.pendingPath.data());
    state.pendingPath[0] = '\0';  // the mapping stays, as plain memory
}

// What was written last may be the beginning of a line.
void end(State& state, int fd, std::string_view partlyWritten) {
    state.ended = true;
    removePending(state);
    std::array<char, kPathSize + 2 * kNumbersSize> mark;
    std::snprintf(mark.data(), mark.size(), "%s%s", state.path.data(), kCutSuffix);
    const int made = openFile(mark.data(), O_WRONLY | O_CREAT);
    if (made >= 0) closeFile(made);
    const size_t newline = partlyWritten.rfind('\n');
    const off_t whole = newline == std::string_view::npos ? std::min(state.lineBeginInFile, state.written)
                                                          : state.written + static_cast<off_t>(newline) + 1;
    if (fd >= 0 && ftruncate(fd, whole) != 0) return;  // the reader leaves a cut line out
}

bool isTraceFile(const State& state, int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 && status.st_dev == state.device && status.st_ino == state.inode;
}

// Moves what is pending to the file. The file is not kept open: a program may close every descriptor that it
// did not open, and then get the same number for something of its own.
void flush(State& state) {
    if (state.used == 0 || state.ended) return;
    if (state.lineBegin < state.used) state.pending[state.lineBegin] = state.lineFirst;
    const std::string_view text(state.pending, state.used);
    const int fd = openFile(state.path.data(), O_WRONLY | O_APPEND);
    const bool same = fd >= 0 && isTraceFile(state, fd);
    const size_t done = same ? writeAll(fd, state.written, text) : 0;
    if (done < text.size()) {
        end(state, same ? fd : -1, text.substr(0, done));
    } else {
        state.written += static_cast<off_t>(done);
    }
    if (fd >= 0) closeFile(fd);
    state.pending[0] = '\0';
    state.used = 0;
    state.lineBegin = 0;
}

// The first byte of a line takes the place of the NUL when all others stand: until then the line is not
// there.
void put(State& state, std::string_view text) {
    constexpr size_t kCapacity = kPendingSize - 1;  // and a NUL
    while (!text.empty() && !state.ended) {
        const size_t count = std::min(text.size(), kCapacity - state.used);
        char* const to = state.pending + state.used;
        if (count > 0 && state.used == state.lineBegin) {
            state.lineFirst = text.front();
            std::memcpy(to + 1, text.data() + 1, count - 1);
        } else {
            std::memcpy(to, text.data(), count);
        }
        state.used += count;
        text.remove_prefix(count);
        if (!text.empty()) flush(state);
    }
}

// A member whose value are bytes; `key` with all that stands before the digits.
void putHex(State& state, std::string_view key, std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<char, 512> text;
    size_t length = key.copy(text.data(), text.size());
    for (const uint8_t byte : bytes) {
        if (length + 2 > text.size()) {
            put(state, {text.data(), length});
            length = 0;
        }
        text[length++] = kDigits[byte >> 4U];
        text[length++] = kDigits[byte & 0xfU];
    }
    put(state, {text.data(), length});
    put(state, "\"");
}

void beginLine(State& state, size_t length) {
    if (length > kPendingSize - 1 - state.used) flush(state);
    state.lineBegin = state.used;
    state.lineBeginInFile = state.written + static_cast<off_t>(state.used);
}

void endLine(State& state) {
    put(state, "}\n");
    if (state.ended) return;
    state.pending[state.used] = '\0';
    std::atomic_ref(state.pending[state.lineBegin]).store(state.lineFirst, std::memory_order_release);
    state.lineBegin = state.used;
    if (state.exiting) flush(state);
}

// --- A process begins its trace.

// The mapping of a file, so that its text outlives the process; plain memory where there is no room for one.
char* mapPending(State& state) {
    std::snprintf(state.pendingPath.data(), state.pendingPath.size(), "%s%s", state.path.data(),
                  kPendingSuffix);
    const int fd = roomFor(0, kPendingSize) < kPendingSize
                       ? -1
                       : openFile(state.pendingPath.data(), O_RDWR | O_CREAT | O_TRUNC);
    void* memory = MAP_FAILED;
    if (fd >= 0 && syscall(SYS_fallocate, fd, 0, 0L, static_cast<long>(kPendingSize)) == 0)
        memory = mmap(nullptr, kPendingSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0) closeFile(fd);
    if (memory == MAP_FAILED) {
        if (fd >= 0) removePending(state);
        state.pendingPath[0] = '\0';
        memory = mmap(nullptr, kPendingSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    }
    if (memory == MAP_FAILED) return nullptr;
    madvise(memory, kPendingSize, MADV_DONTFORK);
    return static_cast<char*>(memory);
}

// The path itself for the first process, with the process's number for any other, also for a further program
// of the same process. Never a file that exists.
int createFile(State& state) {
    constexpr int kMostOfOneProcess = 1000;
    struct stat status {};
    // A device or a pipe is no place for a trace.
    if (stat(gPath.data(), &status) == 0 && !S_ISREG(status.st_mode)) return -1;
    for (int attempt = 0; attempt < kMostOfOneProcess; ++attempt) {
        char* const path = state.path.data();
        const char* const base = gPath.data();
        constexpr size_t kSize = kPathSize + kNumbersSize;
        if (attempt == 0) std::snprintf(path, kSize, "%s", base);
        if (attempt == 1) std::snprintf(path, kSize, "%s.%d", base, state.process);
        if (attempt > 1) std::snprintf(path, kSize, "%s.%d.%d", base, state.process, attempt);
        const int fd = openFile(path, O_WRONLY | O_APPEND | O_CREAT | O_EXCL);
        if (fd >= 0 || errno != EEXIST) return fd;
    }
    return -1;
}

// The program's name, as the kernel has it.
size_t programName(std::span<char> name) {
    const int fd = openFile("/proc/self/comm", O_RDONLY);
    const long count = fd < 0 ? 0 : syscall(SYS_read, fd, name.data(), name.size());
    if (fd >= 0) closeFile(fd);
    return count > 0 ? static_cast<size_t>(count) - 1 : 0;  // without the newline
}

void putHead(State& state) {
    std::array<char, 64> name;
    Text<512> head;
    head.raw("{").text("kind", "trace").number("format", kTraceFormat).text("recorder", "libois_spy");
    head.text("kernel", "real").number("pid", state.process);
    head.text("program", {name.data(), programName(name)}).number("clock_us", gStartNs / kNsPerUs);
    beginLine(state, head.view().size() + 2);
    put(state, head.view());
    endLine(state);
}

void begin(State& state) {
    state.process = getpid();
    const int fd = createFile(state);
    struct stat status {};
    const bool created = fd >= 0 && fstat(fd, &status) == 0;
    if (fd >= 0) closeFile(fd);
    state.device = status.st_dev;
    state.inode = status.st_ino;
    state.pending = created ? mapPending(state) : nullptr;
    state.ended = state.pending == nullptr;
    if (!state.ended) putHead(state);
}

// --- Who records.

// The lock, for as long as it lives. Not held when another thread keeps it for too long, as one does that
// left it by a jump out of a signal handler.
class Inside {
  public:
    Inside() {
        tThread.inside = true;
        mLocked = pthread_mutex_trylock(&gState->mutex) == 0 || waitForLock();
        if (mLocked && gState->stuck.load(std::memory_order_relaxed)) gState->stuck = false;
        if (mLocked && gState->process == 0) begin(*gState);
    }
    ~Inside() {
        if (mLocked) pthread_mutex_unlock(&gState->mutex);
        tThread.inside = false;
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

    bool mayWrite() const { return mLocked && !gState->ended; }

  private:
    // Once in vain is enough: the program is not to wait again.
    static bool waitForLock() {
        constexpr int kLimitS = 1;
        if (gState->stuck) return false;
        timespec limit{};
        clock_gettime(CLOCK_REALTIME, &limit);
        limit.tv_sec += kLimitS;
        const bool locked = pthread_mutex_timedlock(&gState->mutex, &limit) == 0;
        gState->stuck = !locked;
        return locked;
    }

    bool mLocked = false;
};

uint32_t numberIn(State& state) {
    if (tThread.process != state.process) {
        const bool isMain = syscall(SYS_gettid) == state.process;
        tThread = {.process = state.process, .number = isMain ? 0 : ++state.threads, .inside = true};
    }
    return tThread.number;
}

void putEvent(State& state, std::string_view members, std::span<const uint8_t> sent,
              std::span<const uint8_t> received) {
    Text<128> head;
    head.raw("{").number("sequence", ++state.sequence).number("time_us", (nowNs() - gStartNs) / kNsPerUs);
    head.number("thread", numberIn(state)).raw(",");
    constexpr std::string_view kSent = ",\"sent\":\"";
    constexpr std::string_view kReceived = ",\"received\":\"";
    constexpr size_t kEnds = 4;  // two quotes, a brace, a newline
    beginLine(state, head.view().size() + members.size() + kSent.size() + kReceived.size() + kEnds +
                         2 * (sent.size() + received.size()));
    put(state, head.view());
    put(state, members);
    putHex(state, kSent, sent);
    putHex(state, kReceived, received);
    endLine(state);
}

// Says what is missing before the next event.
void putLost(State& state) {
    const uint64_t lost = state.lost.exchange(0, std::memory_order_relaxed);
    if (lost == 0) return;
    Text<128> note;
    note.text("kind", "note").text("name", "lost").open("fields").number("events", lost).close();
    note.text("text", "events that could not be recorded");
    putEvent(state, note.view(), {}, {});
}

// --- The library's own beginning and end.

// The path as it is from wherever the program goes.
bool takePath() {
    const char* const path = std::getenv(kPathVariable);
    if (path == nullptr || *path == '\0') return false;
    std::array<char, kPathSize> folder{};
    if (*path != '/' && getcwd(folder.data(), folder.size()) == nullptr) return false;
    const int length =
        std::snprintf(gPath.data(), gPath.size(), "%s%s%s", folder.data(), *path == '/' ? "" : "/", path);
    return length > 0 && static_cast<size_t>(length) < gPath.size();
}

[[gnu::constructor]] void start() {
    gStartNs = nowNs();
    if (!takePath()) return;
    void* const memory =
        mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    // Linux 4.14. Without it a child would write where its parent does.
    if (madvise(memory, sizeof(State), MADV_WIPEONFORK) == 0) {
        gState = static_cast<State*>(memory);
    } else {
        munmap(memory, sizeof(State));
    }
}

[[gnu::destructor]] void finish() {
    if (gState == nullptr || gState->process == 0) return;
    const Inside inside;
    if (!inside.mayWrite()) return;
    putLost(*gState);
    flush(*gState);
    removePending(*gState);
    gState->exiting = true;
}

}  // namespace

int64_t nowNs() {
    constexpr int64_t kNsPerS = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * kNsPerS + now.tv_nsec;
}

bool wanted() {
    return gState != nullptr && !gState->ended.load(std::memory_order_relaxed);
}

void noteLost() {
    if (gState != nullptr) gState->lost.fetch_add(1, std::memory_order_relaxed);
}

void record(std::string_view members, std::span<const uint8_t> sent, std::span<const uint8_t> received) {
    if (!wanted()) return;
    if (tThread.inside) return noteLost();
    const Inside inside;
    if (!inside.mayWrite()) return noteLost();
    putLost(*gState);
    putEvent(*gState, members, sent, received);
}

bool inVforkChild() {
    return gState != nullptr && gState->process != 0 && gState->process != getpid();
}

uint32_t threadNumber() {
    if (!wanted() || tThread.inside) return 0;
    const Inside inside;
    return inside.mayWrite() ? numberIn(*gState) : 0;
}

uint32_t nextThreadNumber() {
    if (!wanted() || tThread.inside) return 0;
    const Inside inside;
    return inside.mayWrite() ? ++gState->threads : 0;
}

void beThread(uint32_t number) {
    if (number != 0) tThread = {.process = getpid(), .number = number, .inside = false};
}

ErrorName::ErrorName(int error) {
#ifdef __GLIBC__
    const char* const name = strerrorname_np(error);
    if (name != nullptr) {
        mText.raw(name);
        return;
    }
#endif
    mText.raw("error ").number(error);
}

}  // namespace spy
