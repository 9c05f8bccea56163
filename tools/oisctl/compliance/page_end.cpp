#include "compliance/page_end.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "compliance/sub_device.h"

namespace oisctl {

PageEnd::PageEnd(Behind behind) : mPageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))), mBehind(behind) {
    void* const pages =
        mmap(nullptr, 2 * mPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    mPages = static_cast<std::byte*>(pages);
    mRecord = mPages + mPageSize;
}

PageEnd::~PageEnd() {
    munmap(mPages, 2 * mPageSize);
}

std::byte* PageEnd::put(std::span<const std::byte> record, size_t beyond) {
    std::byte* const behind = mPages + mPageSize;
    mprotect(behind, mPageSize, PROT_READ | PROT_WRITE);
    std::memset(mPages, kGuardByte, 2 * mPageSize);
    mRecord = behind - (record.size() - beyond);
    std::ranges::copy(record, mRecord);
    mprotect(behind, mPageSize, mBehind == Behind::kReadOnly ? PROT_READ : PROT_NONE);
    return mRecord;
}

bool PageEnd::frontTouched() const {
    return !std::all_of(mPages, mRecord, isGuard);
}

}  // namespace oisctl
