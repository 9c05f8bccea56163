#include "base/whole_file.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "base/errors.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

// What a link leads to, be it there or not.
fs::path target(fs::path file) {
    constexpr int kMostLinks = 40;  // as the kernel has it
    std::error_code error;
    for (int links = 0; links < kMostLinks && fs::is_symlink(fs::symlink_status(file, error)); ++links)
        file = file.parent_path() / fs::read_symlink(file, error);
    return file;
}

}  // namespace

fs::path partOf(const fs::path& file) {
    std::error_code ignored;
    const fs::file_status status = fs::status(file, ignored);
    fs::path part = target(file);
    if (!fs::exists(status) || fs::is_regular_file(status)) part += ".part";
    return part;
}

void requireOther(const fs::path& output, const std::vector<std::string>& sources) {
    for (const std::string& source : sources) {
        std::error_code ignored;
        if (!source.empty() && fs::equivalent(source, output, ignored))
            throw InputError(
                fmt::format("{}: is what it would be made of; expected another file", output.string()));
    }
}

WholeFile::WholeFile(const fs::path& file) : mFile(target(file)), mPart(partOf(file)) {
    mStream = std::fopen(mPart.c_str(), "wb");
    if (mStream == nullptr) fail(errno);
}

WholeFile::~WholeFile() {
    if (mStream == nullptr) return;
    std::fclose(mStream);
    std::error_code ignored;
    if (mPart != mFile) fs::remove(mPart, ignored);
}

void WholeFile::write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), mStream) != text.size()) fail(errno);
}

void WholeFile::finish() {
    if (std::fflush(mStream) != 0) fail(errno);
    std::error_code error;
    if (mPart != mFile) fs::rename(mPart, mFile, error);
    if (error) fail(error.value());
    std::fclose(std::exchange(mStream, nullptr));
}

void WholeFile::fail(int error) const {
    throw JobError(fmt::format("{}: cannot be written: {}", mFile.string(), std::strerror(error)));
}

}  // namespace oisctl
