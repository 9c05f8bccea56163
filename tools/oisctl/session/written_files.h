#pragma once
// Which files the driver was seen to write.

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/trace.h"

namespace oisctl {

// A file that the driver opened for writing, which leaves nothing of what stood in it before.
struct WrittenFile {
    std::string path;    // as the driver has it
    int openError = 0;   // errno
    bool lost = false;   // what is written goes elsewhere
    int closeError = 0;  // errno; the last of it may not have got to the file
};

// Any thread.
class WrittenFiles {
  public:
    void take(const phone::Event& event);
    // The one of that ending that was tried last.
    std::optional<WrittenFile> find(std::string_view ending) const;

  private:
    mutable std::mutex mMutex;
    std::vector<WrittenFile> mFiles;  // in the order of their opening
};

}  // namespace oisctl
