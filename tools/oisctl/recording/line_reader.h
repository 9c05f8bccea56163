#pragma once
// A file line by line, of any length, a block in memory at a time.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "base/terminal.h"

namespace oisctl {

class LineReader {
  public:
    // Throws InputError "FILE: cannot be read: REASON"; so does next(). `job` stands before the progress bar.
    LineReader(const std::filesystem::path& file, std::string job);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // False at the end. Until the next call `line` is the next one without its newline.
    bool next(std::string_view& line);
    size_t number() const { return mNumber; }          // of that line, from 1
    bool cut() const { return mCut; }                  // that line has no newline: the file ends in it
    uint64_t bytes() const { return mBytes; }          // of the file, as far as it was read
    uint64_t fileBytes() const { return mFileBytes; }  // all; 0 of what is no plain file

  private:
    bool fill();
    [[noreturn]] void fail(int error) const;

    const std::string mFile;
    int mDescriptor = -1;
    uint64_t mFileBytes = 0;
    uint64_t mBytes = 0;
    std::unique_ptr<char[]> mBuffer;
    size_t mBegin = 0;  // of what was not given yet
    size_t mEnd = 0;
    size_t mNumber = 0;
    bool mCut = false;
    Progress mProgress;
};

}  // namespace oisctl
