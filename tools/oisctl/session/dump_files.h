#pragma once
// The text files that the driver dumps into the phone's folder.

#include <filesystem>
#include <string_view>

namespace oisctl {

class DriverSession;

// The file of the session's module, on this machine. `suffix`: "_status.txt", "_otp.txt", "_flash.txt".
std::filesystem::path dumpFile(DriverSession& session, std::string_view suffix);

// Creates the folder if missing. Throws InputError when files cannot be kept there: to be called before a
// long job.
void requireFolder(const std::filesystem::path& folder);

// Throws JobError when the driver wrote no such file.
void requireWritten(const std::filesystem::path& file);

// Copies the file into a folder, and returns the copy. Throws JobError when there is no file, InputError when
// the folder cannot be written.
std::filesystem::path keepFile(const std::filesystem::path& file, const std::filesystem::path& folder);

}  // namespace oisctl
