#pragma once
// Files that a user names.

#include <filesystem>
#include <string>
#include <string_view>

namespace phone {

// The whole file, of 256 MiB at most. Throws std::runtime_error, "FILE: cannot be read: REASON".
std::string readFile(const std::filesystem::path& file);

// The same for text; one with a zero byte is refused.
std::string readTextFile(const std::filesystem::path& file);

// A line without the blanks around it.
std::string_view trimmed(std::string_view line);

}  // namespace phone
