#include "session/dump_files.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/errors.h"
#include "kernel/file_tree.h"
#include "session/driver_session.h"

namespace oisctl {

namespace {

template <size_t kSize>
std::string bounded(const char (&text)[kSize]) {
    return {text, strnlen(text, kSize)};
}

}  // namespace

std::filesystem::path dumpFile(DriverSession& session, std::string_view suffix) {
    const ois::OisCustInfo& info = session.module().custInfo;
    const std::string name = "ois_dump_" + bounded(info.cameraTypeName) + "_" + bounded(info.mOisIcName);
    return session.phone().files().dumpFolder() / std::string(name).append(suffix);
}

void requireFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw InputError("-o " + folder.string() + ": cannot be a folder: " + error.message());
    if (access(folder.c_str(), W_OK) != 0) {
        throw InputError("-o " + folder.string() + ": cannot be written: " + std::strerror(errno));
    }
}

void requireWritten(const std::filesystem::path& file) {
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored))
        throw JobError("the driver wrote no " + file.filename().string());
}

std::filesystem::path keepFile(const std::filesystem::path& file, const std::filesystem::path& folder) {
    requireWritten(file);
    std::error_code error;
    std::filesystem::path copy = folder / file.filename();
    if (std::filesystem::equivalent(file, copy, error)) return copy;
    std::filesystem::copy_file(file, copy, std::filesystem::copy_options::overwrite_existing, error);
    if (error) throw InputError("-o " + folder.string() + ": cannot be written: " + error.message());
    return copy;
}

}  // namespace oisctl
