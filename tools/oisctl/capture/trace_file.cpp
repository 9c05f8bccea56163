#include "capture/trace_file.h"

#include <fmt/core.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/errors.h"
#include "base/file_content.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

// What a command found, as it stands behind its trace.
bool isReport(std::string_view line) {
    const auto json = nlohmann::json::parse(line, nullptr, false);
    return json.is_object() && json.contains("format") && !json.contains("kind");
}

fs::path pendingFile(const fs::path& path) {
    return path.string() + ".pending";
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
    for (TracedEvent& traced : trace.events) {
        const auto next = static_cast<uint32_t>(numbers.size());
        traced.event.thread = numbers.try_emplace(traced.event.thread, next).first->second;
    }
}

std::string pendingLines(const fs::path& path) {
    std::string lines = linesIn(pendingFile(path));
    // A process that is killed between writing them and forgetting them leaves them twice.
    std::ifstream trace(path, std::ios::binary | std::ios::ate);
    const auto length = static_cast<std::streamoff>(lines.size());
    if (lines.empty() || trace.tellg() < length) return lines;
    std::string last(lines.size(), '\0');
    trace.seekg(-length, std::ios::end).read(last.data(), length);
    return last == lines ? std::string() : lines;
}

void appendPendingLines(const fs::path& path) {
    std::ofstream trace(path, std::ios::binary | std::ios::app);
    trace << pendingLines(path) << std::flush;
    if (trace) fs::remove(pendingFile(path));
}

TraceFile loadTrace(const fs::path& path) {
    const std::string text = asInput("", [&] { return phone::readTextFile(path); }) + pendingLines(path);
    TraceFile trace{path, {}, {}};
    size_t number = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = phone::trimmed(std::string_view(text).substr(at, end - at));
        at = end + 1;
        ++number;
        if (line.empty()) continue;
        try {
            if (auto about = phone::traceHeadOfJson(line)) {
                trace.about = std::move(*about);
            } else {
                trace.events.push_back({number, phone::eventOfJson(line)});
            }
        } catch (const std::invalid_argument& error) {
            if (isReport(line)) continue;
            throw InputError(fmt::format("{}:{}: {}", path.string(), number, error.what()));
        }
    }
    if (trace.events.empty()) throw InputError(path.string() + ": holds no event of a trace");
    numberThreads(trace);
    return trace;
}

}  // namespace oisctl
