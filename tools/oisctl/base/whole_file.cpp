#include "base/whole_file.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "base/errors.h"

namespace oisctl {

namespace fs = std::filesystem;

WholeFile::WholeFile(fs::path file) : mFile(std::move(file)), mPart(mFile) {
    std::error_code ignored;
    const fs::file_status status = fs::status(mFile, ignored);
    if (!fs::exists(status) || fs::is_regular_file(status)) mPart += ".part";
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
