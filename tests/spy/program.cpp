// A program that makes private requests in ways that are hard to follow, and says what it saw of them.
//     spied_program WAY

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/media.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr unsigned long kSetMode = 0x400456C2;
constexpr unsigned long kGetHall = 0xC01856D9;
constexpr unsigned long kLarge = _IOC(_IOC_READ | _IOC_WRITE, 'V', 255, 8000);
constexpr uint32_t kMany = 2000;  // more than the library keeps before it writes

// /dev/null refuses every request.
int null() {
    static const int fd = open("/dev/null", O_RDWR);
    return fd;
}

void request(uint32_t mode) {
    ioctl(null(), kSetMode, &mode);
}

void show(const char* what, long result) {
    std::printf("%s %ld %s\n", what, result, result < 0 ? std::strerror(errno) : "");
}

void results() {
    uint32_t mode = 2;
    char target[16];
    std::vector<uint8_t> large(8000, 0xab);
    void* const gone = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    show("refused", ioctl(null(), kSetMode, &mode));
    show("large", ioctl(null(), kLarge, large.data()));
    show("closed", ioctl(-1, kSetMode, &mode));
    show("no memory", ioctl(null(), kGetHall, nullptr));
    show("a number", ioctl(null(), kGetHall, 5));
    show("no access", ioctl(null(), kGetHall, gone));
    show("standard", ioctl(null(), MEDIA_IOC_DEVICE_INFO, nullptr));
    show("device", open("/dev/media4711", O_RDWR | O_NONBLOCK));
    show("bad path", open(static_cast<const char*>(gone), O_RDWR));
    show("bad link", readlink(static_cast<const char*>(gone), target, sizeof target));
    show("link", readlink("/sys/dev/char/1:3", target, sizeof target));
    show("no close", close(4711));
    errno = 0;
    const int pair = dup(null());
    show("close", close(pair));
    show("errno", errno);
}

void threads() {
    std::vector<std::thread> all;
    for (int i = 0; i < 4; ++i)
        all.emplace_back([] {
            for (uint32_t n = 0; n < kMany; ++n) request(n);
        });
    for (std::thread& thread : all) thread.join();
}

void forks() {
    for (uint32_t n = 0; n < 3; ++n) {
        request(n);
        std::thread busy([] {
            for (uint32_t i = 0; i < 100; ++i) request(1000);
        });
        if (fork() == 0) {
            request(100 + n);
            _exit(0);
        }
        busy.join();
        wait(nullptr);
    }
}

// What is not ours is closed, and its number taken by a file of our own.
void closes() {
    uint32_t n = 0;
    while (n < kMany / 2) request(n++);
    syscall(SYS_close_range, 3, ~0U, 0);
    const int own = open("own", O_RDWR | O_CREAT | O_TRUNC, 0600);
    const int device = open("/dev/null", O_RDWR);
    for (; n < kMany; ++n) ioctl(device, kSetMode, &n);
    show("own file", lseek(own, 0, SEEK_END));
}

void limit() {
    const rlimit least{200'000, 200'000};
    setrlimit(RLIMIT_FSIZE, &least);
    for (uint32_t n = 0; n < kMany; ++n) request(n);
    std::puts("alive");
}

std::atomic<uint32_t> gInterrupted{0};
void interrupted(int) {
    const int kept = errno;
    request(gInterrupted++);
    errno = kept;
}
void signals() {
    null();  // opened by no handler
    std::signal(SIGALRM, interrupted);
    const itimerval often{{0, 50}, {0, 50}};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (uint32_t n = 0; n < 5 * kMany; ++n) request(n);
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    std::printf("%u\n", 5 * kMany + gInterrupted);
}

void killed() {
    for (uint32_t n = 0; n < kMany; ++n) request(n);
    std::raise(SIGKILL);
}

}  // namespace

int main(int, char** arguments) {
    const std::map<std::string, void (*)()> ways{
        {"results", results}, {"threads", threads}, {"forks", forks},  {"closes", closes},
        {"limit", limit},     {"signals", signals}, {"killed", killed}};
    ways.at(arguments[1])();
    return 3;
}
