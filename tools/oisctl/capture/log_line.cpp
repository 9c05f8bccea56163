#include "capture/log_line.h"

#include <algorithm>
#include <cctype>

#include "base/file_content.h"
#include "trace/trace.h"

namespace oisctl {

namespace {

constexpr std::string_view kTag = "OisDrv";

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}
bool isNameCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Whether `text` has the shape of `pattern`, in which 9 stands for a digit and everything else for itself.
bool hasShape(std::string_view text, std::string_view pattern) {
    const auto fits = [](char c, char wanted) { return wanted == '9' ? isDigit(c) : c == wanted; };
    return text.size() >= pattern.size() && std::equal(pattern.begin(), pattern.end(), text.begin(),
                                                       [&](char wanted, char c) { return fits(c, wanted); });
}

// "[pid 7] ", "12:30:01.5 ", "1700000000.5 ": what a tracer puts in front of a call.
std::string_view withoutTracersHead(std::string_view text) {
    text = phone::trimmed(text);
    if (text.starts_with("[pid"))
        text = phone::trimmed(text.substr(std::min(text.find(']'), text.size() - 1) + 1));
    const size_t blank = text.find(' ');
    const std::string_view word = text.substr(0, blank);
    const bool isTime = !word.empty() && isDigit(word.front()) &&
                        word.find_first_not_of("0123456789:.") == std::string_view::npos;
    return isTime && blank != std::string_view::npos ? phone::trimmed(text.substr(blank)) : text;
}

bool isTracersRemark(std::string_view text) {
    const std::string_view call = withoutTracersHead(text);
    return call.starts_with("+++") || call.starts_with("---") || call.starts_with("<...") ||
           call.starts_with("strace: ");
}

// Lines of a phone's or a kernel's log, whoever wrote them.
bool isLogLine(std::string_view text) {
    constexpr std::string_view kLevels = "VDIWEF";
    if (hasShape(text, "99-99 99:99:99.") || hasShape(text, "9999-99-99 99:99:99")) return true;
    if (text.starts_with("--------- ")) return true;  // "beginning of main"
    if (text.size() > 2 && kLevels.find(text[0]) != std::string_view::npos && text[1] == '/') return true;
    // "[   12.345678] ", "<6>[   12.345678] "
    if (text.size() > 2 && text[0] == '<' && isDigit(text[1]))
        text.remove_prefix(std::min(text.find('>') + 1, text.size()));
    const size_t close = text.find(']');
    return text.starts_with('[') && close != std::string_view::npos && close > 1 &&
           text.substr(1, close - 1).find_first_not_of(" 0123456789.") == std::string_view::npos &&
           text.substr(1, close - 1).find('.') != std::string_view::npos;
}

// The driver's message behind its tag: "D OisDrv  : ...", "D/OisDrv( 123): ...", "OisDrv: ...".
bool findMessage(std::string_view text, Line& line) {
    const size_t tag = text.find(kTag);
    if (tag == std::string_view::npos || (tag > 0 && isNameCharacter(text[tag - 1]))) return false;
    std::string_view rest = phone::trimmed(text.substr(tag + kTag.size()));
    if (rest.starts_with('('))
        rest = phone::trimmed(rest.substr(std::min(rest.find(')'), rest.size() - 1) + 1));
    if (!rest.starts_with(':')) return false;
    line.kind = LineKind::kMessage;
    line.text = phone::trimmed(rest.substr(1));
    if (tag >= 2 && (text[tag - 1] == '/' || text[tag - 1] == ' ') &&
        std::isupper(static_cast<unsigned char>(text[tag - 2])) != 0)
        line.level = text[tag - 2];
    return true;
}

// "   12.345 ms  #1  hub  ...", "    0.0100 s    hub  ...", "hub  ...".
bool isNarrated(std::string_view text) {
    for (const std::string_view unit : {" ms  #", " s  "}) {
        const size_t at = text.find(unit);
        if (at == std::string_view::npos ||
            text.substr(0, at).find_first_not_of("0123456789.") != std::string_view::npos)
            continue;
        return true;
    }
    for (int kind = 0; kind <= static_cast<int>(phone::EventKind::kNote); ++kind) {
        const std::string_view name = phone::name(static_cast<phone::EventKind>(kind));
        if (text.starts_with(name) && text.substr(name.size()).starts_with("  ")) return true;
    }
    return false;
}

// A remark of a tracer, a call but ioctl, or a log's line that is none of the driver's, which `found`
// becomes.
bool isForeign(std::string_view text, Line& found) {
    if (isTracersRemark(text)) return true;
    const std::string_view call = tracedCall(text);
    if (!call.empty()) return !call.starts_with("ioctl(");
    return isLogLine(text) && !findMessage(text, found);
}

}  // namespace

std::string_view tracedCall(std::string_view line) {
    const std::string_view text = withoutTracersHead(line);
    const size_t open = text.find('(');
    const std::string_view name = text.substr(0, open);
    const bool isCall =
        open != std::string_view::npos && open > 0 && std::all_of(name.begin(), name.end(), isNameCharacter);
    return isCall ? text : std::string_view();
}

Line classify(std::string_view line) {
    const std::string_view text = phone::trimmed(line);
    Line found{LineKind::kItem, line};
    if (text.starts_with("{\"")) {
        found.kind = LineKind::kEvent;
    } else if (isNarrated(text)) {
        found.kind = LineKind::kNarrated;
    } else if (isForeign(text, found)) {
        found.kind = LineKind::kForeign;
    }
    return found;
}

}  // namespace oisctl
