#pragma once
// An open device node.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace oisctl {

class Descriptor {
  public:
    Descriptor(const std::string& path, int flags)
        : mFd(open(path.c_str(), flags)), mError(mFd < 0 ? errno : 0) {}
    ~Descriptor() {
        if (mFd >= 0) close(mFd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    // Errno of the opening.
    int error() const { return mError; }
    // Errno of the request.
    int ask(unsigned long request, void* record) const { return ioctl(mFd, request, record) < 0 ? errno : 0; }

  private:
    int mFd;
    int mError;
};

}  // namespace oisctl
