#include "recording/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/errors.h"

namespace oisctl {

namespace {

// Room for one line at least: what has longer ones is no text that the tool reads.
constexpr size_t kBuffer = size_t{1} << 20;

uint64_t sizeOf(const std::string& file) {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

}  // namespace

LineReader::LineReader(const std::filesystem::path& file, std::string job)
    : mFile(file.string()),
      mDescriptor(open(mFile.c_str(), O_RDONLY | O_CLOEXEC)),
      mFileBytes(sizeOf(mFile)),
      mBuffer(std::make_unique<char[]>(kBuffer)),
      mProgress(std::move(job), static_cast<double>(mFileBytes)) {
    if (mDescriptor < 0) fail(errno);
}

LineReader::~LineReader() {
    if (mDescriptor >= 0) close(mDescriptor);
}

void LineReader::fail(int error) const {
    throw InputError(fmt::format("{}: cannot be read: {}", mFile, std::strerror(error)));
}

bool LineReader::next(std::string_view& line) {
    size_t searched = 0;
    for (;;) {
        const char* const begin = mBuffer.get() + mBegin;
        const size_t held = mEnd - mBegin;
        const void* const newline = std::memchr(begin + searched, '\n', held - searched);
        if (newline != nullptr) {
            line = {begin, static_cast<size_t>(static_cast<const char*>(newline) - begin)};
            mBegin += line.size() + 1;
            ++mNumber;
            return true;
        }
        searched = held;
        if (fill()) continue;
        if (held == 0) return false;
        line = {mBuffer.get() + mBegin, held};
        mBegin = mEnd;
        mCut = true;
        ++mNumber;
        return true;
    }
}

// Moves what is left to the front and reads on; false at the end of the file.
bool LineReader::fill() {
    std::memmove(mBuffer.get(), mBuffer.get() + mBegin, mEnd - mBegin);
    mEnd -= mBegin;
    mBegin = 0;
    if (mEnd == kBuffer)
        throw InputError(fmt::format("{}:{}: a line of more than {} bytes", mFile, mNumber + 1, kBuffer));
    ssize_t count = 0;
    do {
        count = read(mDescriptor, mBuffer.get() + mEnd, kBuffer - mEnd);
    } while (count < 0 && errno == EINTR);
    if (count < 0) fail(errno);
    mEnd += static_cast<size_t>(count);
    mBytes += static_cast<size_t>(count);
    mProgress.update(static_cast<double>(mBytes));
    return count > 0;
}

}  // namespace oisctl
