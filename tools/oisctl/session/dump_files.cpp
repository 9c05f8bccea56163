#include "session/dump_files.h"

#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/errors.h"
#include "kernel/file_tree.h"
#include "session/driver_session.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

namespace fs = std::filesystem;

fs::path onThisMachine(DriverSession& session, const WrittenFile& file) {
    return session.phone().files().dumpFolder() / fs::path(file.path).filename();
}

// 0 when files can be made in the folder, else what is in the way.
int folderError(const fs::path& folder) {
    std::error_code error;
    if (fs::exists(folder, error) && !fs::is_directory(folder, error)) return ENOTDIR;
    return access(folder.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
}

}  // namespace

uintmax_t dumpedBytes(DriverSession& session, std::string_view ending) {
    const std::optional<WrittenFile> file = session.writtenFiles().find(ending);
    if (!file || file->openError != 0 || file->lost) return 0;
    std::error_code error;
    const uintmax_t size = fs::file_size(onThisMachine(session, *file), error);
    return error ? 0 : size;
}

std::optional<fs::path> dumpFile(DriverSession& session, std::string_view ending) {
    const std::optional<WrittenFile> file = session.writtenFiles().find(ending);
    const std::string path = file ? onThisMachine(session, *file).string() : "";
    std::string trouble;
    if (!file) {
        trouble = fmt::format("the driver wrote no file of the name ...{}", ending);
    } else if (file->openError != 0) {
        trouble = fmt::format("{}: the driver could not write it: {}", path, std::strerror(file->openError));
    } else if (dumpedBytes(session, ending) == 0) {
        trouble = fmt::format("{}: the driver wrote nothing into it", path);
    } else {
        if (file->closeError != 0)
            session.fail(
                fmt::format("{}: the end of it was not written: {}", path, std::strerror(file->closeError)));
        return path;
    }
    if (!session.deviceLost()) session.fail(trouble);
    return std::nullopt;
}

void requireDumpFolder(const fs::path& folder, std::string_view option) {
    if (const int error = folderError(folder); error != 0) {
        throw InputError(
            fmt::format("{}: the driver cannot write its dumps there: {}; make the folder, or name "
                        "another with {}",
                        folder.string(), std::strerror(error), option));
    }
}

void requireFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw InputError("-o " + folder.string() + ": cannot be a folder: " + error.message());
    if (const int reason = folderError(folder); reason != 0)
        throw InputError("-o " + folder.string() + ": cannot be written: " + std::strerror(reason));
}

fs::path keepFile(const fs::path& file, const fs::path& folder) {
    std::error_code error;
    fs::path copy = folder / file.filename();
    if (fs::equivalent(file, copy, error)) return copy;
    fs::copy_file(file, copy, fs::copy_options::overwrite_existing, error);
    if (error) throw InputError("-o " + folder.string() + ": cannot be written: " + error.message());
    return copy;
}

}  // namespace oisctl
