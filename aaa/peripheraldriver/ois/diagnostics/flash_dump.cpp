// The dump of the controller's flash data area.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "diagnostics/dump_file.h"
#include "log.h"
#include "ois_drv.h"
#include "shared_field.h"

using ois::HubCommand;
using ois::loadShared;
using ois::Request;

namespace {

constexpr useconds_t kTransferSettleUs = 2000;
constexpr size_t kEntriesPerLine = 8;
constexpr int kMessageSize = 8;  // the size that the message names

// Lines always carry eight entries, so the last may show bytes past the length, though none past the record.
void writeFlashLines(const ois::OisFlashRecord& flash, ois::DumpFile& file) {
    const size_t length = std::min<size_t>(flash.length, ois::kFlashDataSize);
    static_assert(ois::kFlashDataSize % kEntriesPerLine == 0);
    for (size_t offset = 0; offset < length; offset += kEntriesPerLine) {
        constexpr size_t kLongestEntry = 64;
        std::array<char, kEntriesPerLine * kLongestEntry> line;
        size_t end = 0;
        for (size_t i = offset; i < offset + kEntriesPerLine; ++i) {
            end += static_cast<size_t>(std::snprintf(line.data() + end, line.size() - end,
                                                     "address: 0x%" PRIx64 "  value: 0x%x,  ",
                                                     uint64_t{flash.base} + i, flash.data[i]));
        }
        line[end++] = '\n';
        file.writeLine({line.data(), end});
    }
}

}  // namespace

int32_t OISDrv::DumpOisFlashData2File() {
    const ois::SessionBuffers::Storage storage = mBuffers.hold();
    // Not the buffer's address but the member's: one kernel driver follows the pointer it finds there,
    // another writes the record in its place. The block around the member belongs to the transfer.
    const int32_t result =
        transfer(Request::kReadFlash, HubCommand::kNoHubMeaning, mOisFlashBlock, ois::kHubPayloadSize);
    const ois::OisFlashRecord flash = takeFlashRecord(storage);
    usleep(kTransferSettleUs);
    const uint8_t dump = loadShared(mProperty.dump);
    OIS_ERROR("DumpOisFlashData2File %d\n", dump & kDumpFlash);

    const int32_t descriptor = loadShared(fd_driver);
    if (descriptor < 0) {
        // The descriptor is printed where the device index is meant.
        OIS_ERROR("Dev %d , OIS error opening\n", descriptor);
        return 0;
    }
    if ((dump & kDumpFlash) == 0) return result;
    ois::DumpFile file(dumpPath(ois::kFlashFileSuffix));
    if (!file.isOpen()) {
        OIS_ERROR("creat ois ic dump file failed!\n");
        return ois::kDumpFileNotCreated;
    }
    OIS_INFO("creat ois ic dump file success!\n");
    OIS_INFO("mOisFlashData_address 0x%08x, size %d\n",
             static_cast<uint32_t>(reinterpret_cast<uintptr_t>(ois::flashOf(storage))), kMessageSize);
    writeFlashLines(flash, file);
    return result;
}

// What a flash transfer delivered. Another user's Init or the last Uninit may have changed the member
// meanwhile; a pointer that neither of them put there is the head of a record that the kernel wrote in its
// place. Either way the member then points to the session's buffer again.
ois::OisFlashRecord OISDrv::takeFlashRecord(const ois::SessionBuffers::Storage& storage) {
    ois::OisFlashRecord flash{};
    mBuffers.look([&](const ois::SessionBuffers::Storage& current) {
        ois::OisFlashRecord* const member = loadShared(mOisFlashData);
        ois::OisFlashRecord* const buffer = ois::flashOf(storage);
        if (member != buffer && member != ois::flashOf(current)) {
            const auto inPlace = ois::snapshot(mOisFlashBlock);
            std::memcpy(&flash, inPlace.data(), sizeof flash);
        } else if (buffer != nullptr) {
            flash = *buffer;
        }
        ois::storeShared(mOisFlashData, ois::flashOf(current));
    });
    return flash;
}
