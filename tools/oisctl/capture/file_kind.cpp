#include "capture/file_kind.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string_view>

#include "base/errors.h"
#include "capture/trace_file.h"
#include "recording/recording.h"

namespace oisctl {

const char* name(FileKind kind) {
    return kind == FileKind::kTrace ? "trace" : "recording";
}

FileKind kindOf(const std::filesystem::path& file) {
    std::array<char, 256> begin{};
    std::ifstream stream(file, std::ios::binary);
    stream.read(begin.data(), begin.size());
    if (stream.bad() || (stream.gcount() == 0 && !stream.eof())) {
        throw InputError(fmt::format("{}: cannot be read: {}", file.string(), std::strerror(errno)));
    }
    std::string_view text(begin.data(), static_cast<size_t>(stream.gcount()));
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    if (text.starts_with('{')) return FileKind::kTrace;
    if (text.starts_with(columnName(0))) return FileKind::kRecording;
    if (text.empty() && !pendingLines(file).empty()) return FileKind::kTrace;
    throw InputError(
        fmt::format("{}: neither a trace, whose lines begin with a brace, nor a status "
                    "recording, which begins with \"{}\"",
                    file.string(), columnName(0)));
}

}  // namespace oisctl
