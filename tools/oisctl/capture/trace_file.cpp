#include "capture/trace_file.h"

#include <fmt/core.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/terminal.h"
#include "capture/file_kind.h"
#include "trace/decode.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kThread = "thread";  // the field that names one

// What a command found, as it stands behind its trace.
bool isReport(std::string_view line) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    return json.is_object() && json.contains("format") && !json.contains("kind");
}

fs::path pendingFile(const fs::path& path) {
    return path.string() + ".pending";
}

// Empty; it says that the trace is not whole.
fs::path cutMark(const fs::path& path) {
    return path.string() + ".cut";
}

// The lines end at the first NUL; behind it is what was there before.
std::string linesIn(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string lines;
    std::getline(stream, lines, '\0');
    return lines;
}

}  // namespace

void numberThreads(TraceFile& trace) {
    const auto isCall = [](const TracedEvent& traced) {
        return traced.event.kind == phone::EventKind::kCall;
    };
    const auto caller = std::ranges::find_if(trace.events, isCall);
    std::map<uint32_t, uint32_t> numbers;
    if (caller != trace.events.end()) numbers.emplace(caller->event.thread, 0);
    const auto numberFor = [&numbers](uint32_t thread) {
        return numbers.try_emplace(thread, static_cast<uint32_t>(numbers.size())).first->second;
    };
    for (TracedEvent& traced : trace.events) traced.event.thread = numberFor(traced.event.thread);
    for (TracedEvent& traced : trace.events) {
        if (traced.event.kind != phone::EventKind::kThread) continue;
        for (phone::Field& field : traced.event.fields)
            if (field.name == kThread && !std::holds_alternative<std::string>(field.value))
                field.value = uint64_t{
                    numberFor(static_cast<uint32_t>(phone::integerField({.fields = {field}}, kThread)))};
    }
}

std::string pendingLines(const fs::path& path) {
    std::string lines = linesIn(pendingFile(path));
    std::ifstream trace(path, std::ios::binary | std::ios::ate);
    if (lines.empty() || !trace) return lines;
    // A process that is killed between writing them, or some of them, and forgetting them leaves them twice.
    std::string last(std::min(lines.size(), static_cast<size_t>(trace.tellg())), '\0');
    trace.seekg(-static_cast<std::streamoff>(last.size()), std::ios::end)
        .read(last.data(), static_cast<std::streamsize>(last.size()));
    size_t written = last.size();
    while (written > 0 && !last.ends_with(std::string_view(lines).substr(0, written))) --written;
    return lines.substr(written);
}

void removeTrace(const fs::path& path, std::error_code& error) {
    for (const fs::path& file : {path, pendingFile(path), cutMark(path)})
        if (fs::remove(file, error); error) return;
}

bool endsEarly(const fs::path& path) {
    return fs::exists(cutMark(path));
}

void appendPendingLines(const fs::path& path) {
    std::ofstream trace(path, std::ios::binary | std::ios::app);
    trace << pendingLines(path) << std::flush;
    if (trace) fs::remove(pendingFile(path));
}

TraceFile loadTrace(const fs::path& path) {
    if (fs::is_regular_file(path) && kindOf(path) != FileKind::kTrace)
        throw InputError(path.string() +
                         ": is a status recording; a trace is wanted, of --trace=FILE or oisctl spy");
    const std::string text = asInput("", [&] { return phone::readTextFile(path); }) + pendingLines(path);
    TraceFile trace{path, {}, {}, endsEarly(path)};
    size_t number = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = phone::trimmed(std::string_view(text).substr(at, end - at));
        at = end + 1;
        ++number;
        if (line.empty()) continue;
        try {
            auto read = phone::traceLineOfJson(line);
            if (auto* const head = std::get_if<phone::TraceHead>(&read)) {
                if (!trace.about.empty() || !trace.events.empty())
                    throw std::invalid_argument("another trace begins here; put each into a file of its own");
                trace.about = std::move(head->about);
            } else {
                trace.events.push_back({number, std::get<phone::Event>(std::move(read))});
            }
        } catch (const std::invalid_argument& error) {
            if (isReport(line)) continue;
            if (at > text.size()) {
                printRemark(
                    fmt::format("oisctl: {}:{}: the last line is cut, and left out", path.string(), number));
                trace.cut = true;
                continue;
            }
            throw InputError(fmt::format("{}:{}: {}", path.string(), number, error.what()));
        }
    }
    if (trace.events.empty()) throw InputError(path.string() + ": holds no event of a trace");
    numberThreads(trace);
    return trace;
}

}  // namespace oisctl
