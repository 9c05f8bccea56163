#include "diagnostics/dump_file.h"

#include "ois_drv.h"
#include "shared_field.h"

namespace {

constexpr const char* kDumpPrefix = "/mnt/vendor/nvcfg/camera/ois_dump_";

}  // namespace

void ois::DumpFile::writeLine(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), mFile.get());
    std::fflush(mFile.get());
}

// Prefix, camera type, chip name and what the file holds.
std::string OISDrv::dumpPath(const char* suffix) const {
    std::string path = kDumpPrefix;
    path += ois::textOf(ois::snapshot(mOisCustInfo.cameraTypeName));
    path += '_';
    path += ois::textOf(ois::snapshot(mOisCustInfo.mOisIcName));
    path += suffix;
    return path;
}
