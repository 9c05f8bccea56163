#pragma once
// What the tool puts on the terminal: lines, tables, colours, and a progress bar that stays out of their way.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace oisctl {

enum class Style { kPlain, kBold, kDim, kGood, kWarning, kBad, kName, kValue };

// `text` in that style for standard output; unchanged when that is no terminal or NO_COLOR is set.
std::string styled(Style style, std::string_view text);

// One line to standard output. Any thread; a progress bar makes way.
void printLine(std::string_view text = {});
// One line to standard error, for remarks that are not the result.
void printRemark(std::string_view text);

// What fits about a line; what is left out is said by an ellipsis.
std::string shortened(std::string text);

// How many columns a text takes on the terminal.
size_t columnsOf(std::string_view text);

// A bar on standard error while it lives, if that is a terminal and the work takes more than a second. One at
// a time.
class Progress {
  public:
    Progress(std::string label, double total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Any thread. `note` stands behind the bar.
    void update(double done, std::string_view note = {});

  private:
    const std::string mLabel;
    const double mTotal;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mDrawn{};
};

// "12.3 s", "45.0 ms", "830 us".
std::string duration(double seconds);
// 28672 as "28,672".
std::string grouped(uint64_t value);

}  // namespace oisctl
