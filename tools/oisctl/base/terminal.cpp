#include "base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace oisctl {

namespace {

constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr int kBarWidth = 28;

std::mutex gMutex;
std::string gBar;  // as it stands on the terminal; empty when there is none

bool hasColours() {
    static const bool has = [] {
        const char* off = std::getenv("NO_COLOR");
        const char* term = std::getenv("TERM");
        const bool dumb = term != nullptr && std::string_view(term) == "dumb";
        return isatty(STDOUT_FILENO) == 1 && (off == nullptr || *off == '\0') && !dumb;
    }();
    return has;
}

// In the order of Style.
constexpr std::array<std::string_view, 8> kEscapes = {"", "1", "2", "32", "33", "31", "36", "35"};

void write(std::FILE* stream, std::string_view text) {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), stream);
}

void eraseBar() {
    if (!gBar.empty()) write(stderr, "\r\x1b[K");
}

void drawBar() {
    if (gBar.empty()) return;
    write(stderr, gBar);
    std::fflush(stderr);
}

void printTo(std::FILE* stream, std::string_view text) {
    const std::lock_guard lock(gMutex);
    eraseBar();
    write(stream, text);
    write(stream, "\n");
    std::fflush(stream);
    drawBar();
}

size_t terminalColumns() {
    winsize size{};
    constexpr size_t kUsual = 80;
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
    return size.ws_col;
}

}  // namespace

std::string styled(Style style, std::string_view text) {
    if (!hasColours() || style == Style::kPlain) return std::string(text);
    return fmt::format("\x1b[{}m{}\x1b[0m", kEscapes[static_cast<size_t>(style)], text);
}

void printLine(std::string_view text) {
    printTo(stdout, text);
}
void printRemark(std::string_view text) {
    printTo(stderr, text);
}

size_t columnsOf(std::string_view text) {
    const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };  // UTF-8
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), begins));
}

std::string shortened(std::string text) {
    constexpr size_t kLongestLine = 180;
    if (text.size() <= kLongestLine) return text;
    text.resize(kLongestLine);
    return text + " ...";
}

Progress::Progress(std::string label, double total) : mLabel(std::move(label)), mTotal(total) {}

Progress::~Progress() {
    const std::lock_guard lock(gMutex);
    eraseBar();
    gBar.clear();
    std::fflush(stderr);
}

void Progress::update(double done, std::string_view note) {
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard lock(gMutex);
    if (now - mStart < kPatience || now - mDrawn < kRedraw || isatty(STDERR_FILENO) != 1) return;
    mDrawn = now;
    const double share = mTotal > 0 ? std::clamp(done / mTotal, 0.0, 1.0) : 0;
    const auto filled = static_cast<size_t>(std::lround(share * kBarWidth));
    std::string bar =
        fmt::format("{} [{:.<{}}] {:.0f} %", mLabel, std::string(filled, '#'), kBarWidth, share * 100);
    const double elapsed = std::chrono::duration<double>(now - mStart).count();
    if (share > 0 && share < 1) bar += "  " + duration(elapsed * (1 - share) / share) + " left";
    if (!note.empty()) bar.append("  ").append(note);
    // A bar that wraps cannot be taken back.
    bar.resize(std::min(bar.size(), terminalColumns() - 1));
    eraseBar();
    gBar = std::move(bar);
    drawBar();
}

std::string duration(double seconds) {
    constexpr double kMilli = 1e-3;
    if (seconds >= 1 || seconds == 0)
        return fmt::format("{:.{}f} s", seconds, seconds >= 100 || seconds == 0 ? 0 : 2);
    if (seconds >= kMilli) return fmt::format("{:.1f} ms", seconds / kMilli);
    return fmt::format("{:.0f} us", seconds / kMilli / kMilli);
}

std::string grouped(uint64_t value) {
    constexpr uint64_t kThousand = 1000;
    if (value < kThousand) return fmt::format("{}", value);
    return fmt::format("{},{:03}", grouped(value / kThousand), value % kThousand);
}

}  // namespace oisctl
