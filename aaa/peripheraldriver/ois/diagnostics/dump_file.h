#pragma once
// The text files that the diagnostics write.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace ois {

// What a dump returns when its file cannot be created.
constexpr int32_t kOtpDumpNotCreated = -1;
constexpr int32_t kStatusOrFlashDumpNotCreated = -3;

constexpr const char* kStatusFileSuffix = "_status.txt";
constexpr const char* kOtpFileSuffix = "_otp.txt";
constexpr const char* kFlashFileSuffix = "_flash.txt";

// A dump file: created or truncated by the constructor, written line by line, closed by the destructor. Every
// line is flushed, so that a file cut short by a crash is complete up to its last line. Write errors are not
// looked at.
class DumpFile {
  public:
    explicit DumpFile(const std::string& path) : mFile(std::fopen(path.c_str(), "w")) {}

    // False when the file could not be created, for instance since its directory is missing.
    bool isOpen() const { return mFile != nullptr; }
    // `line` ends in its newline.
    void writeLine(std::string_view line);

  private:
    struct Close {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<FILE, Close> mFile;
};

}  // namespace ois
