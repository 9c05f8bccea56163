#pragma once
// What a line of a capture is: one of ours, in one of several forms, or of something else.

#include <string_view>

namespace oisctl {

enum class LineKind {
    kItem,      // a request or a record
    kEvent,     // of a trace, in JSON
    kNarrated,  // of a trace, in words already
    kMessage,   // of the driver, in a log of the phone
    kForeign,   // another program's message, another call, a remark of the tracer
};

struct Line {
    LineKind kind = LineKind::kItem;
    std::string_view text;  // of a message, what the driver said; else the line
    char level = 'D';       // of a message
};

Line classify(std::string_view line);

// The call in a line of a system-call tracer, "ioctl(5, ...) = 0", without what stands in front of it; empty
// when it is none.
std::string_view tracedCall(std::string_view line);

}  // namespace oisctl
