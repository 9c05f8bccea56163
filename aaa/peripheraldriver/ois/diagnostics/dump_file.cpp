#include "diagnostics/dump_file.h"

#include "ois_drv.h"
#include "shared_field.h"

namespace {

constexpr const char* kDumpPrefix = "/mnt/vendor/nvcfg/camera/ois_dump_";

template <size_t kSize>
void appendText(std::string& path, const std::array<char, kSize>& field) {
    const std::string_view whole(field.data(), field.size());
    path += whole.substr(0, whole.find('\0'));
}

}  // namespace

void ois::DumpFile::writeLine(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), mFile.get());
    std::fflush(mFile.get());
}

// Prefix, camera type, chip name and what the file holds.
std::string OISDrv::dumpPath(const char* suffix) const {
    std::string path = kDumpPrefix;
    appendText(path, ois::snapshot(mOisCustInfo.cameraTypeName));
    path += '_';
    appendText(path, ois::snapshot(mOisCustInfo.mOisIcName));
    path += suffix;
    return path;
}
