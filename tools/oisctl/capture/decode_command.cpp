#include "capture/decode_command.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <istream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/suggest.h"
#include "capture/log_line.h"
#include "services/log_service.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kDigitsPerByte = 2;
constexpr size_t kCodeDigits = 8;

// Why an item cannot be decoded. One line.
class BadItem : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A line that is none of ours.
struct NotOurs {};

struct Item {
    std::string place;  // "argument 2", "capture.txt:7"
    std::string text;
    LineKind kind = LineKind::kItem;
    char level = 'D';  // of a message
};

bool isHex(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}
bool hasHexPrefix(std::string_view token) {
    return token.starts_with("0x") || token.starts_with("0X");
}
std::string_view withoutPrefix(std::string_view token) {
    return hasHexPrefix(token) ? token.substr(2) : token;
}

std::string count(size_t number, const std::string& what) {
    return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
}

// As far as it helps to find the place, and without what a terminal would take for more than text.
std::string shown(std::string_view token) {
    constexpr size_t kShown = 24;
    std::string text = "'";
    for (const char c : token.substr(0, kShown)) text += c >= ' ' && c <= '~' ? c : '?';
    return text + (token.size() > kShown ? "...'" : "'");
}

// Blanks, and what C arrays put between bytes.
std::vector<std::string_view> tokens(std::string_view text) {
    constexpr std::string_view kSeparators = " \t\r\n,;{}()\\";
    std::vector<std::string_view> found;
    for (size_t at = text.find_first_not_of(kSeparators); at != std::string_view::npos;) {
        const size_t end = std::min(text.find_first_of(kSeparators, at), text.size());
        found.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(kSeparators, end);
    }
    return found;
}

// The hex digits of a record, as they follow each other in memory.
std::string recordDigits(const std::vector<std::string_view>& parts) {
    const bool oneByOne = std::all_of(parts.begin(), parts.end(), [](std::string_view part) {
        return withoutPrefix(part).size() <= kDigitsPerByte;
    });
    std::string digits;
    for (const std::string_view part : parts) {
        const std::string_view bare = withoutPrefix(part);
        if (!isHex(bare)) throw BadItem(shown(part) + " is not hexadecimal");
        if (hasHexPrefix(part) && bare.size() > kDigitsPerByte) {
            throw BadItem(fmt::format(
                "{} is a number of several bytes: write the bytes in memory order, without 0x", shown(part)));
        }
        if (bare.size() == 1 && (oneByOne || hasHexPrefix(part))) digits += '0';
        digits += bare;
    }
    return digits;
}

Bytes parseRecord(const std::vector<std::string_view>& parts, size_t size, const std::string& what) {
    const std::string digits = recordDigits(parts);
    const size_t wanted = size * kDigitsPerByte;
    if (digits.size() != wanted) {
        const bool fewer = digits.size() < wanted;
        const size_t difference = fewer ? wanted - digits.size() : digits.size() - wanted;
        throw BadItem(fmt::format("{} has {}, that is {}; here {} {}, {} {}", what, count(size, "byte"),
                                  count(wanted, "hex digit"), difference == 1 ? "is" : "are", digits.size(),
                                  difference, fewer ? "missing" : "too many"));
    }
    return phone::bytesOfHex(digits);
}

// --- Requests.

// A request's digits; some tools print it as a negative 64-bit number.
std::optional<uint32_t> parseCode(std::string_view token) {
    constexpr uint64_t kSign = 0xFFFFFFFF;
    const std::string_view digits = withoutPrefix(token);
    uint64_t code = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
    if (!isHex(digits) || result.ec != std::errc()) return std::nullopt;
    const bool isNegative = digits.size() == 2 * kCodeDigits && code >> 32U == kSign;
    if (digits.size() > kCodeDigits && !isNegative) return std::nullopt;
    return static_cast<uint32_t>(code);
}

// Whether eight bare digits in front of further ones are a request. In a hub record the byte that tells the
// request's type is the output length, which never is as large.
bool looksLikeCode(std::string_view token) {
    const auto code = token.size() == kCodeDigits ? parseCode(token) : std::nullopt;
    return code && (_IOC_TYPE(*code) == ois::kRequestType || _IOC_TYPE(*code) == '|');
}

std::string shownEvent(const phone::Event& event, bool json) {
    return json ? toJson(event, false) : toText(event, false);
}

struct Traced {
    uint32_t code = 0;
    std::optional<int64_t> result{};  // unless it is 0, which says nothing
    int error = 0;                    // errno of a call that failed
};

std::string describeRequest(const Traced& traced, bool json) {
    const uint32_t code = traced.code;
    const phone::RequestInfo* info = phone::findRequest(code);
    phone::Event event = phone::requestEvent(code, {}, {});
    event.result = traced.result;
    event.error = traced.error;
    if (json) return toJson(event, false);
    std::string text = toText(event, false);
    if (info == nullptr) return text;
    return fmt::format("{}  {}, {} ({}): {}", text, phone::direction(code), count(_IOC_SIZE(code), "byte"),
                       info->record->name, info->meaning);
}

// The request that four arguments of _IOC make.
uint32_t composedCode(const std::vector<std::string_view>& arguments) {
    constexpr size_t kArguments = 4;
    if (arguments.size() < kArguments)
        throw BadItem("_IOC has four arguments: direction, type, number, size");
    uint32_t code = 0;
    if (arguments[0].find("_IOC_READ") != std::string_view::npos) code |= _IOC(_IOC_READ, 0, 0, 0);
    if (arguments[0].find("_IOC_WRITE") != std::string_view::npos) code |= _IOC(_IOC_WRITE, 0, 0, 0);
    constexpr std::pair<unsigned, unsigned> kParts[] = {
        {_IOC_TYPESHIFT, _IOC_TYPEMASK}, {_IOC_NRSHIFT, _IOC_NRMASK}, {_IOC_SIZESHIFT, _IOC_SIZEMASK}};
    auto argument = arguments.begin();
    for (const auto& [shift, mask] : kParts) {
        const auto value = parseCode(*++argument);
        if (!value || *value > mask) throw BadItem(shown(*argument) + " does not fit into a request");
        code |= *value << shift;
    }
    return code;
}

bool isOurs(uint32_t code) {
    const bool isPrivate = _IOC_TYPE(code) == ois::kRequestType && _IOC_NR(code) >= BASE_VIDIOC_PRIVATE;
    return isPrivate || _IOC_TYPE(code) == '|';
}

// The request in a tracer's "ioctl(5, _IOC(_IOC_READ|_IOC_WRITE, 0x56, 0xd4, 0x18), ...) = -1 EIO (...)", in
// hex or by name. Throws NotOurs for one that is none of ours.
std::optional<Traced> tracedRequest(std::string_view text) {
    constexpr std::string_view kCall = "ioctl(";
    constexpr std::string_view kMediaPrefix = "MEDIA_IOC_";
    constexpr std::string_view kResult = " = ";
    const std::string_view call = tracedCall(text);
    if (!call.starts_with(kCall)) return std::nullopt;
    const auto parts = tokens(call.substr(kCall.size()));
    constexpr size_t kRequest = 1;  // behind the descriptor
    if (parts.size() <= kRequest) throw BadItem("the ioctl has no request");
    std::string_view request = parts[kRequest];
    if (request.starts_with(kMediaPrefix)) request.remove_prefix(kMediaPrefix.size());
    Traced traced;
    if (request == "_IOC") {
        traced.code = composedCode({parts.begin() + kRequest + 1, parts.end()});
    } else if (const phone::RequestInfo* info = phone::findRequest(request)) {
        traced.code = info->code;
    } else if (const auto code = hasHexPrefix(request) ? parseCode(request) : std::nullopt) {
        traced.code = *code;
    }
    if (!isOurs(traced.code)) throw NotOurs();
    if (const size_t ended = call.rfind(kResult); ended != std::string_view::npos) {
        const auto words = tokens(call.substr(ended + kResult.size()));
        int64_t result = 0;
        if (!words.empty()) std::from_chars(words[0].data(), words[0].data() + words[0].size(), result);
        if (result != 0) traced.result = result;
        if (result < 0 && words.size() > 1) traced.error = phone::errorByName(words[1]);
    }
    return traced;
}

// --- Items.

struct Split {
    std::string head;  // of a request
    std::vector<std::string_view> sent;
    std::optional<std::vector<std::string_view>> answered;
};

// "static const uint8_t record[64] = { ..." without what stands in front of the bytes.
std::string_view withoutDeclaration(std::string_view text) {
    const size_t equals = text.substr(0, text.find('{')).rfind('=');
    return equals == std::string_view::npos ? text : text.substr(equals + 1);
}

// "->" stands between what was sent and what came back.
Split split(std::string_view text) {
    Split parts;
    text = withoutDeclaration(text);
    const size_t arrow = text.find("->");
    if (arrow != std::string_view::npos) {
        parts.answered = tokens(text.substr(arrow + 2));
        text = text.substr(0, arrow);
    }
    const size_t colon = text.find(':');
    if (colon != std::string_view::npos) {
        const auto head = tokens(text.substr(0, colon));
        if (head.size() != 1) throw BadItem("':' stands behind a request's code, as in '400456C2: 02000000'");
        parts.head = head.front();
        parts.sent = tokens(text.substr(colon + 1));
        return parts;
    }
    parts.sent = tokens(text);
    if (parts.sent.empty())
        throw BadItem(arrow == std::string_view::npos ? "is empty" : "nothing stands in front of '->'");
    const std::string_view first = parts.sent.front();
    const bool prefixedCode = hasHexPrefix(first) && first.size() > 2 + kDigitsPerByte;
    const bool alone = parts.sent.size() == 1 && withoutPrefix(first).size() == kCodeDigits;
    const bool isCode = prefixedCode || alone || looksLikeCode(first) || !isHex(withoutPrefix(first)) ||
                        (first.size() == 2 * kCodeDigits && parseCode(first));
    if (isCode) {
        parts.head = first;
        parts.sent.erase(parts.sent.begin());
    }
    return parts;
}

uint32_t requestCode(const std::string& head) {
    if (const phone::RequestInfo* info = phone::findRequest(head)) return info->code;
    if (const auto code = parseCode(head)) return *code;
    if (isHex(withoutPrefix(head))) {
        throw BadItem(fmt::format("{} has {}; a request has 8", shown(head),
                                  count(withoutPrefix(head).size(), "digit")));
    }
    std::vector<std::string> names = namesIn(phone::privateRequests(), &phone::RequestInfo::name);
    for (const phone::RequestInfo& info : phone::mediaRequests()) names.emplace_back(info.name);
    const std::string closest = nearest(head, names);
    throw BadItem(fmt::format("{} is neither a request in hex, such as 400456C2, nor the name of one{}",
                              shown(head),
                              closest.empty() ? "" : fmt::format("; did you mean '{}'?", closest)));
}

std::string decodeRequestItem(const Split& parts, bool json) {
    const uint32_t code = requestCode(parts.head);
    if (parts.sent.empty() && !parts.answered) return describeRequest({code}, json);
    const std::string name = phone::findRequest(code) == nullptr ? parts.head : phone::requestName(code);
    const Bytes sent = parseRecord(parts.sent, _IOC_SIZE(code), "the record of " + name);
    // A record alone may have been captured on either side of the call: all of it is shown.
    const Bytes answered =
        parts.answered ? parseRecord(*parts.answered, _IOC_SIZE(code), "the answer of " + name) : sent;
    return shownEvent(phone::requestEvent(code, sent, answered), json);
}

ois::OisCustomCmd parseHubRecord(const std::vector<std::string_view>& parts, const std::string& what) {
    ois::OisCustomCmd record;
    const Bytes bytes = parseRecord(parts, sizeof record, what);
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

std::string decodeHubItem(const Split& parts, bool json) {
    const ois::OisCustomCmd sent = parseHubRecord(parts.sent, "a hub record");
    if (!parts.answered) return shownEvent(phone::hubEvent(sent, nullptr), json);
    const ois::OisCustomCmd answered = parseHubRecord(*parts.answered, "a hub record's answer");
    return shownEvent(phone::hubEvent(sent, &answered), json);
}

std::ptrdiff_t openBraces(std::string_view text) {
    return std::count(text.begin(), text.end(), '{') - std::count(text.begin(), text.end(), '}');
}

std::string decodeMessage(const Item& item, bool json) {
    using phone::LogLevel;
    const LogLevel level = item.level == 'E'   ? LogLevel::kError
                           : item.level == 'I' ? LogLevel::kInfo
                                               : LogLevel::kDebug;
    return shownEvent({.kind = phone::EventKind::kMessage,
                       .name = "log",
                       .fields = {{"level", std::string(phone::name(level))}},
                       .text = item.text},
                      json);
}

std::string decodeEvent(const Item& item, bool json) {
    try {
        const auto line = phone::traceLineOfJson(item.text);
        const auto* const event = std::get_if<phone::Event>(&line);
        if (event == nullptr) throw NotOurs();
        const bool inTrace = event->sequence != 0;
        return json ? phone::toJson(*event, inTrace) : phone::toText(*event, inTrace);
    } catch (const std::invalid_argument& error) {
        throw BadItem(error.what());
    }
}

std::string decodeItem(const Item& item, bool json) {
    switch (item.kind) {
        case LineKind::kEvent:
            return decodeEvent(item, json);
        case LineKind::kMessage:
            return decodeMessage(item, json);
        case LineKind::kNarrated:
            return item.text;
        case LineKind::kForeign:
            throw NotOurs();
        case LineKind::kItem:
            break;
    }
    if (const auto traced = tracedRequest(item.text)) return describeRequest(*traced, json);
    if (openBraces(item.text) > 0) throw BadItem("'{' is not closed");
    const Split parts = split(item.text);
    return parts.head.empty() ? decodeHubItem(parts, json) : decodeRequestItem(parts, json);
}

std::string withoutComment(const std::string& line) {
    return line.substr(0, line.find('#'));
}

// Whether the next line belongs to the same item. A comma behind '}' stands between items.
bool endsOpen(std::string_view line) {
    line = phone::trimmed(line);
    return line.ends_with('\\') || (line.ends_with(',') && !line.ends_with("},"));
}

// Behind the last of the lines that the one at `first` goes on with.
size_t endOfItem(const std::vector<std::string>& lines, size_t first) {
    // The largest record, one byte to a line, with some room.
    constexpr size_t kMostLines = 2048;
    const size_t limit = std::min(lines.size(), first + kMostLines);
    std::ptrdiff_t open = 0;
    bool goesOn = true;
    size_t end = first;
    for (; end < limit && (open > 0 || goesOn); ++end) {
        open += openBraces(lines[end]);
        // Blank lines, and those with a comment alone, change nothing once it has begun.
        if (end == first || !phone::trimmed(lines[end]).empty()) goesOn = endsOpen(lines[end]);
    }
    // An open brace must not take the lines behind it along.
    return open > 0 ? first + 1 : end;
}

std::vector<Item> readItems(std::istream& input, const std::string& name) {
    std::vector<std::string> raw, lines;
    for (std::string line; std::getline(input, line);) {
        lines.push_back(withoutComment(line));
        raw.push_back(std::move(line));
    }
    std::vector<Item> items;
    for (size_t first = 0, end = 0; first < lines.size(); first = end) {
        const Line line = classify(raw[first]);
        end = line.kind == LineKind::kItem ? endOfItem(lines, first) : first + 1;
        std::string text(line.kind == LineKind::kItem ? lines[first] : line.text);
        for (size_t next = first + 1; next < end; ++next) text += ' ' + lines[next];
        if (!phone::trimmed(text).empty())
            items.push_back({fmt::format("{}:{}", name, first + 1), std::move(text), line.kind, line.level});
    }
    return items;
}

// Whether an argument cannot be the rest of a record that the arguments before it began.
bool beginsItem(std::string_view argument) {
    const auto parts = tokens(argument);
    if (parts.empty()) return true;
    const std::string_view first = parts.front();
    const bool isNumber = hasHexPrefix(first) && first.size() > 2 + kDigitsPerByte;
    return isNumber || looksLikeCode(first) || !isHex(withoutPrefix(first));
}

bool isWholeHubRecord(std::string_view text) {
    return text.size() >= sizeof(ois::OisCustomCmd) * kDigitsPerByte && isHex(text);
}

// A shell splits "400456C2 02000000" in two.
std::vector<Item> argumentItems(const std::vector<std::string>& inputs) {
    constexpr std::string_view kArrow = "->";
    std::vector<Item> items;
    bool joins = false;
    for (size_t i = 0; i < inputs.size(); ++i) {
        const std::string text = withoutComment(inputs[i]);
        const bool arrow = text.starts_with(kArrow);
        if (arrow || joins ||
            (!items.empty() && !beginsItem(text) && !isWholeHubRecord(text) &&
             !isWholeHubRecord(items.back().text))) {
            if (items.empty()) items.push_back({"argument 1", {}});
            items.back().text += ' ' + text;
        } else {
            items.push_back({"argument " + std::to_string(i + 1), text});
        }
        joins = text.ends_with(kArrow);
    }
    return items;
}

}  // namespace

int runDecode(const std::vector<std::string>& inputs, const std::optional<std::string>& file, bool json,
              std::istream& standardInput, std::ostream& out, std::ostream& err) {
    std::vector<Item> items;
    try {
        if (!inputs.empty()) {
            items = argumentItems(inputs);
        } else if (file && *file != "-") {
            std::istringstream text(phone::readTextFile(*file));
            items = readItems(text, *file);
        } else {
            items = readItems(standardInput, "standard input");
        }
        if (items.empty())
            throw InputError(
                "nothing to decode: give a request in hex, such as 400456C2, or a hub record of 128 hex "
                "digits");
    } catch (const std::runtime_error& error) {
        err << fmt::format("oisctl: {}\n", error.what());
        return kWrongInput;
    }
    size_t foreign = 0;
    int status = kSuccess;
    for (const Item& item : items) {
        try {
            out << decodeItem(item, json) << '\n';
        } catch (const NotOurs&) {
            ++foreign;
        } catch (const BadItem& bad) {
            err << "oisctl: " << item.place << ": " << bad.what() << '\n';
            status = kWrongInput;
        }
    }
    if (foreign > 0) {
        err << fmt::format("oisctl: {} left out: other calls, other requests, other programs' messages\n",
                           count(foreign, "line"));
    }
    return status;
}

}  // namespace oisctl
