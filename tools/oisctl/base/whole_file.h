#pragma once
// A file that is there whole or not at all.

#include <cstdio>
#include <filesystem>
#include <string_view>

namespace oisctl {

class WholeFile {
  public:
    // Writes beside `file` first. What is no plain file, such as a pipe, is written to as it is. Throws
    // JobError "FILE: cannot be written: REASON"; so do the others.
    explicit WholeFile(std::filesystem::path file);
    // Without finish() nothing is left, and what stood there before is untouched.
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    void write(std::string_view text);
    // Puts it in its place.
    void finish();

  private:
    [[noreturn]] void fail(int error) const;

    const std::filesystem::path mFile;
    std::filesystem::path mPart;  // where it is written meanwhile
    std::FILE* mStream = nullptr;
};

}  // namespace oisctl
