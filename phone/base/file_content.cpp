#include "base/file_content.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace phone {

namespace {

constexpr size_t kChunk = 65536;
constexpr size_t kLargest = size_t{256} << 20;

}  // namespace

std::string readFile(const std::filesystem::path& file) {
    const auto fail = [&file](int error) {
        return std::runtime_error(file.string() + ": cannot be read: " + std::strerror(error));
    };
    std::error_code ignored;
    // A folder opens like a file, and fails only when read.
    if (std::filesystem::is_directory(file, ignored)) throw fail(EISDIR);
    std::ifstream in(file, std::ios::binary);
    if (!in) throw fail(errno);
    std::string content;
    std::vector<char> buffer(kChunk);
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        content.append(buffer.data(), static_cast<size_t>(in.gcount()));
        if (content.size() > kLargest) throw fail(EFBIG);  // an endless device, most likely
    }
    if (in.bad()) throw fail(EIO);
    return content;
}

std::string readTextFile(const std::filesystem::path& file) {
    std::string text = readFile(file);
    if (text.find('\0') != std::string::npos) throw std::runtime_error(file.string() + ": is no text file");
    return text;
}

std::string_view trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\r";
    const size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace phone
