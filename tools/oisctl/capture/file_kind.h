#pragma once
// What a file is that may be a trace or a recording, by what stands in it.

#include <filesystem>

namespace oisctl {

enum class FileKind { kTrace, kRecording };
const char* name(FileKind kind);  // "trace"

// By its beginning alone; whether the rest is in order shows when it is read. Throws InputError for a file
// that is neither or cannot be read.
FileKind kindOf(const std::filesystem::path& file);

}  // namespace oisctl
