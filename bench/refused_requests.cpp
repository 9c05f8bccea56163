// Makes private requests that the kernel refuses at once, and prints how many nanoseconds one takes: what
// stands in front of them, or looks on, shows in that.
//     ois_refused_requests COUNT

#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "wire/requests.h"

int main(int argc, char** argv) {
    using Nanoseconds = std::chrono::duration<double, std::nano>;
    const long count = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
    const int null = open("/dev/null", O_RDWR);
    if (count <= 0 || null < 0) {
        std::fprintf(stderr, "ois_refused_requests: names how many requests to make: COUNT\n");
        return 2;
    }
    // The best of some rounds: noise only ever adds.
    constexpr int kRounds = 100;
    double best = std::numeric_limits<double>::max();
    for (int round = 0; round < kRounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        for (long i = 0; i < count; ++i) {
            uint32_t mode = 2;
            if (ioctl(null, ois::code(ois::Request::kSetMode), &mode) == 0) return 1;
        }
        const Nanoseconds passed = std::chrono::steady_clock::now() - begin;
        best = std::min(best, passed.count() / static_cast<double>(count));
    }
    std::printf("%.1f\n", best);
    return 0;
}
