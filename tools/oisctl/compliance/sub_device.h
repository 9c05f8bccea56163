#pragma once
// The lens's node as its kernel driver answers it: by plain system calls, of this machine's kernel, or of the
// simulated phone that stands in front of it.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "modules/module_description.h"
#include "wire/requests.h"

namespace oisctl {

// What is examined.
struct Subject {
    std::string node;                                  // "/dev/v4l-subdev3"
    const phone::ModuleDescription* module = nullptr;  // null: which one is behind it is not known
    bool allowWrite = false;                           // what changes calibration, or keeps it, may be sent
};

// Whether a request of that number changes calibration or keeps it, whatever its size and direction.
bool requestWritesCalibration(uint32_t request);

// The node could not be opened, or what is behind it has gone.
struct NodeLost {
    int error = 0;
    const char* call = "";
};

// An open node. Throws NodeLost.
class SubDevice {
  public:
    explicit SubDevice(const Subject& subject);
    ~SubDevice();
    SubDevice(const SubDevice&) = delete;
    SubDevice& operator=(const SubDevice&) = delete;

    // 0 or greater, or a negative errno. A kernel side that moves more than the record has does no harm here.
    int32_t ask(uint32_t request, std::span<std::byte> record) const;
    template <typename Record>
    int32_t ask(ois::Request request, Record& record) const {
        static_assert(std::is_trivially_copyable_v<Record>);
        return ask(ois::code(request), std::as_writable_bytes(std::span(&record, 1)));
    }
    // With a record at that very address. All that is ever asked passes here: what writes calibration and is
    // not allowed to throws std::logic_error and is not sent.
    int32_t askAt(uint32_t request, void* record) const;
    // 0, or a negative errno; the node is closed in any case.
    int32_t close();

  private:
    const bool mAllowWrite;
    int mDescriptor = -1;
};

// Behind a record, for what a kernel side may write there.
constexpr size_t kSlack = 2048;
// What lies around a record, and where it has reserved bytes, before it is sent.
constexpr int kGuardByte = 0xA5;
constexpr bool isGuard(std::byte byte) {
    return byte == std::byte{kGuardByte};
}

template <typename Record>
std::vector<std::byte> copyOf(const Record& record) {
    const auto* const begin = reinterpret_cast<const std::byte*>(&record);
    return {begin, begin + sizeof(Record)};  // NOLINT(bugprone-sizeof-expression): an address is a record too
}

// "0", "EFAULT": a result as the checks tell it.
std::string resultText(int32_t result);

}  // namespace oisctl
