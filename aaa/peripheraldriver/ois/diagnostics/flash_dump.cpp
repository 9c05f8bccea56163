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

namespace command = ois::command;
using ois::loadShared;

namespace {

constexpr useconds_t kTransferSettleUs = 2000;
constexpr size_t kEntriesPerLine = 8;
constexpr int kMessageSize = 8;  // the size that the message names

// Lines always carry eight entries, so the last one may show bytes past the length. The record's size is a
// multiple of eight, so none past the record.
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
    const ois::SessionBuffers::Storage before = mBuffers.holdOrMake();
    // The kernel gets the address of mOisFlashData, where this block begins.
    const int32_t result = send(command::kReadFlash, mOisFlashBlock);
    const ois::SessionBuffers::Storage storage = settleFlashPointer(before);
    // A kernel that follows the pointer may still be filling the buffer until then.
    usleep(kTransferSettleUs);
    const uint8_t dump = loadShared(mProperty.dump);
    OIS_LOG(kError, "DumpOisFlashData2File %d\n", dump & kDumpFlash);

    const int32_t descriptor = loadShared(fd_driver);
    if (descriptor < 0) {
        // The descriptor is printed where the device index is meant.
        OIS_LOG(kError, "Dev %d , OIS error opening\n", descriptor);
        return 0;
    }
    if ((dump & kDumpFlash) == 0) return result;
    ois::DumpFile file(dumpPath(ois::kFlashFileSuffix));
    if (!file.isOpen()) {
        OIS_LOG(kError, "creat ois ic dump file failed!\n");
        return ois::kStatusOrFlashDumpNotCreated;
    }
    OIS_LOG(kInfo, "creat ois ic dump file success!\n");
    OIS_LOG(kInfo, "mOisFlashData_address 0x%08x, size %d\n",
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&storage->flash)), kMessageSize);
    ois::OisFlashRecord flash;
    mBuffers.look([&](const auto&) { flash = storage->flash; });
    writeFlashLines(flash, file);
    return result;
}

// Where the record of a flash transfer is, or will be; held, also when the session closes meanwhile. `before`
// is what the session had when the transfer began.
//
// Afterwards the member holds the pointer that the kernel followed, since the whole block is copied back; or
// else the beginning of the record, when that is what the kernel copied there. Such a record is moved to
// where the pointer led, and to the present session's buffer. Another user's Init or the last Uninit may have
// changed the pointer meanwhile; in the end it is what the present session has.
ois::SessionBuffers::Storage OISDrv::settleFlashPointer(const ois::SessionBuffers::Storage& before) {
    ois::SessionBuffers::Storage holds = before;
    mBuffers.look([&](const ois::SessionBuffers::Storage& current) {
        ois::OisFlashRecord* const member = loadShared(mOisFlashData);
        ois::OisFlashRecord* const present = current ? &current->flash : nullptr;
        if (member == present) {
            if (current) holds = current;
            return;
        }
        if (member != &before->flash) {
            const auto block = ois::snapshot(mOisFlashBlock);
            std::memcpy(&before->flash, block.data(), sizeof before->flash);
            if (current) current->flash = before->flash;
        }
        ois::storeShared(mOisFlashData, present);
    });
    return holds;
}
