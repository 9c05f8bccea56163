#pragma once
// The text files that the driver dumps into the phone's folder. `ending` chooses one of the session's module:
// "_status.txt", "_otp.txt", "_flash.txt"; what stands before it is the driver's choice.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace oisctl {

class DriverSession;

// Bytes that this session put into the file so far. One that it was not seen to open has none, whatever
// stands there.
uintmax_t dumpedBytes(DriverSession& session, std::string_view ending);

// The file on this machine. Empty when this session put nothing into it, which is a failure of the session,
// unless its device went away, which is one already.
std::optional<std::filesystem::path> dumpFile(DriverSession& session, std::string_view ending);

// Throws InputError when the driver, which creates no folder, could write no file there.
void requireDumpFolder(const std::filesystem::path& folder, std::string_view option);

// Creates the folder if missing. Throws InputError when files cannot be kept there: to be called before a
// long job.
void requireFolder(const std::filesystem::path& folder);

// Copies the file into a folder, and returns the copy. Throws InputError when the folder cannot be written.
std::filesystem::path keepFile(const std::filesystem::path& file, const std::filesystem::path& folder);

}  // namespace oisctl
