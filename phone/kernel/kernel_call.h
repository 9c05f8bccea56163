#pragma once
// What the sources of the class Kernel share.

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "faults/faults.h"
#include "kernel/kernel.h"

namespace phone {

class Controller;

// What is behind a descriptor.
struct Kernel::Node {
    enum class Kind {
        kMedia,
        kSubDevice,
        kMachine,  // a device of the machine's own kernel
        kAnswers,  // nothing: each request to it is answered as faults say
    };

    std::string path;
    Kind kind = Kind::kMachine;
    int number = 0;                          // of a media device
    std::shared_ptr<Controller> controller;  // of a sub-device; null: it knows no private request
};

inline bool beginsWith(const char* path, std::string_view beginning) {
    return path != nullptr && std::strncmp(path, beginning.data(), beginning.size()) == 0;
}

inline Field textField(const char* name, std::string_view text) {
    return {name, std::string(text)};
}

// A system call's result from the kernel's: negative error numbers become -1 and errno.
template <typename Result>
Result toResult(Result kernelResult) {
    constexpr int kMaxErrno = 4095;
    if (kernelResult >= 0 || kernelResult < -kMaxErrno) return kernelResult;
    errno = static_cast<int>(-kernelResult);
    return -1;
}

}  // namespace phone
