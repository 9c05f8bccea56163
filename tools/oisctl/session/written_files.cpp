#include "session/written_files.h"

#include <algorithm>

#include "faults/faults.h"

namespace oisctl {

void WrittenFiles::take(const phone::Event& event) {
    if (event.kind != phone::EventKind::kFile) return;
    const std::lock_guard lock(mMutex);
    const std::string path = textIn(event, "path");
    if (event.name == "fopen" && textIn(event, "mode").starts_with('w')) {
        const bool lost = event.fault && event.fault->effect.kind == phone::FaultEffect::Kind::kLost;
        mFiles.push_back({.path = path, .openError = event.error, .lost = lost});
    } else if (event.name == "fclose" && event.error != 0) {
        const auto file = std::ranges::find(mFiles, path, &WrittenFile::path);
        if (file != mFiles.end()) file->closeError = event.error;
    }
}

std::optional<WrittenFile> WrittenFiles::find(std::string_view ending) const {
    const std::lock_guard lock(mMutex);
    const auto ends = [ending](const WrittenFile& file) { return file.path.ends_with(ending); };
    const auto found = std::find_if(mFiles.rbegin(), mFiles.rend(), ends);
    return found == mFiles.rend() ? std::nullopt : std::optional(*found);
}

}  // namespace oisctl
