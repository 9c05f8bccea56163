#pragma once
// A file that is there whole or not at all.

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

// Where to write what is to become `file`: beside it, or beside what a link points to. What is no plain file,
// such as a pipe, is itself written to.
std::filesystem::path partOf(const std::filesystem::path& file);
// Throws InputError when `output` is one of the files that it is made of.
void requireOther(const std::filesystem::path& output, const std::vector<std::string>& sources);

class WholeFile {
  public:
    // Writes to its part first. Throws JobError "FILE: cannot be written: REASON"; so do the others.
    explicit WholeFile(const std::filesystem::path& file);
    // Without finish() nothing is left, and what stood there before is untouched.
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    void write(std::string_view text);
    // Puts it in its place.
    void finish();

  private:
    [[noreturn]] void fail(int error) const;

    std::filesystem::path mFile;
    std::filesystem::path mPart;  // where it is written meanwhile
    std::FILE* mStream = nullptr;
};

}  // namespace oisctl
