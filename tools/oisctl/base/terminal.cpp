#include "base/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

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

std::string_view escape(Style style) {
    switch (style) {
        case Style::kPlain:
            return "";
        case Style::kBold:
            return "\x1b[1m";
        case Style::kDim:
            return "\x1b[2m";
        case Style::kGood:
            return "\x1b[32m";
        case Style::kWarning:
            return "\x1b[33m";
        case Style::kBad:
            return "\x1b[31m";
        case Style::kName:
            return "\x1b[36m";
        case Style::kValue:
            return "\x1b[35m";
    }
    return "";
}

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

// What a text takes on the terminal: escapes take nothing, a UTF-8 character one column.
size_t columns(std::string_view text) {
    size_t count = 0;
    bool inEscape = false;
    for (const char c : text) {
        if (c == '\x1b') inEscape = true;
        const bool continuation = (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
        if (!inEscape && !continuation) ++count;
        if (inEscape && c == 'm') inEscape = false;
    }
    return count;
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
    return std::string(escape(style)).append(text).append("\x1b[0m");
}

void printLine(std::string_view text) {
    printTo(stdout, text);
}
void printRemark(std::string_view text) {
    printTo(stderr, text);
}

Table::Table(std::vector<std::string> headings)
    : mHeadings(std::move(headings)), mRight(mHeadings.size(), false) {}

void Table::addRow(std::vector<std::string> cells) {
    cells.resize(mHeadings.size());
    mRows.push_back(std::move(cells));
}

void Table::alignRight(size_t column) {
    mRight.at(column) = true;
}

void Table::print() const {
    std::vector<size_t> widths;
    for (size_t c = 0; c < mHeadings.size(); ++c) {
        size_t width = columns(mHeadings[c]);
        for (const auto& row : mRows) width = std::max(width, columns(row[c]));
        widths.push_back(width);
    }
    const auto line = [&](const std::vector<std::string>& cells, Style style) {
        std::string text;
        for (size_t c = 0; c < cells.size(); ++c) {
            const std::string padding(widths[c] - columns(cells[c]), ' ');
            const bool last = c + 1 == cells.size();
            if (mRight[c]) text += padding;
            text += styled(style, cells[c]);
            if (!mRight[c] && !last) text += padding;
            if (!last) text += "  ";
        }
        printLine(text);
    };
    const auto named = [](const std::string& heading) { return !heading.empty(); };
    if (std::any_of(mHeadings.begin(), mHeadings.end(), named)) line(mHeadings, Style::kBold);
    for (const auto& row : mRows) line(row, Style::kPlain);
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
    const auto filled = static_cast<int>(std::lround(share * kBarWidth));
    std::string bar = mLabel + " [";
    for (int i = 0; i < kBarWidth; ++i) bar += i < filled ? '#' : '.';
    bar += "] " + number(share * 100, 0) + " %";
    const double elapsed = std::chrono::duration<double>(now - mStart).count();
    if (share > 0 && share < 1) bar += "  " + duration(elapsed * (1 - share) / share) + " left";
    if (!note.empty()) bar.append("  ").append(note);
    // A bar that wraps cannot be taken back.
    bar.resize(std::min(bar.size(), terminalColumns() - 1));
    eraseBar();
    gBar = std::move(bar);
    drawBar();
}

std::string number(double value, int decimals) {
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return {text.data(), static_cast<size_t>(std::clamp(length, 0, static_cast<int>(text.size()) - 1))};
}

std::string duration(double seconds) {
    constexpr double kMilli = 1e-3;
    if (seconds >= 1) return number(seconds, seconds >= 100 ? 0 : 2) + " s";
    if (seconds >= kMilli) return number(seconds / kMilli, 1) + " ms";
    return number(seconds / kMilli / kMilli, 0) + " us";
}

std::string grouped(uint64_t value) {
    std::string text = std::to_string(value);
    for (size_t place = text.size(); place > 3; place -= 3) text.insert(place - 3, ",");
    return text;
}

std::string hex(uint64_t value, int digits) {
    std::array<char, 32> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "0x%0*llX", digits, static_cast<unsigned long long>(value));
    return {text.data(), static_cast<size_t>(std::clamp(length, 0, static_cast<int>(text.size()) - 1))};
}

}  // namespace oisctl
