#include "session/way.h"

#include <fmt/format.h>
#include <linux/media.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "kernel/media_graph.h"
#include "session/calls.h"
#include "trace/decode.h"
#include "wire/layout.h"
#include "wire/ois_ioctl.h"

namespace oisctl {

using phone::Event;
using phone::EventKind;

namespace {

constexpr std::string_view kMediaPath = "/dev/media";
constexpr std::string_view kDevFolder = "/dev/";

}  // namespace

void Way::take(const Event& event) {
    const std::lock_guard lock(mMutex);
    if (event.kind == EventKind::kMedia) takeMedia(event);
    if (event.kind == EventKind::kFile) takeFile(event);
    if (event.kind == EventKind::kSensor && event.name == "createInstance") mHubMissing = event.result == 0;
    // Two requests go to the descriptor whether it is open or not.
    const bool sent = phone::isCommand(event.kind) && (event.error != EBADF || event.fault != nullptr);
    if (sent && !mFirstCommand && !wasDelivered(event)) mFirstCommand = {phone::nameOf(event), event.error};
}

void Way::takeMedia(const Event& event) {
    if (event.error != 0) {
        // That one ends the list of entities as it should.
        if (event.error == EINVAL && event.code != static_cast<uint32_t>(MEDIA_IOC_DEVICE_INFO)) return;
        if (mSeen.refusedMedia.error == 0) mSeen.refusedMedia = {mMediaPath, event.error};
        return;
    }
    if (event.code == static_cast<uint32_t>(MEDIA_IOC_DEVICE_INFO)) {
        const auto info = phone::recordOf<media_device_info>(event.received);
        const std::string model(ois::textOf(info.model));
        mSeen.models.push_back(fmt::format("{} ({})", model, mMediaPath));
        if (!model.starts_with(OIS_MEDIA_MODEL)) return;
        mSeen.lensDevice = mMediaPath;
        mSeen.refusedMedia = {};  // of those before, which do not matter then
    } else {
        const auto entity = phone::recordOf<media_entity_desc>(event.received);
        const std::string name(ois::textOf(entity.name));
        if (entity.type == phone::kLensEntityType &&
            std::ranges::find(mSeen.lenses, name) == mSeen.lenses.end())
            mSeen.lenses.push_back(name);
    }
}

void Way::takeFile(const Event& event) {
    const std::string path = textIn(event, "path");
    if (event.name == "readlink" && event.error != 0) mSeen.link = {path, event.error};
    if (event.name != "open" || !path.starts_with(kDevFolder)) return;
    if (!path.starts_with(kMediaPath)) {
        mSeen.node = {path, event.error};
        return;
    }
    if (path == "/dev/media0") mSeen = {.tried = true};  // a new attempt begins
    mMediaPath = path;
    if (event.error != 0 && event.error != ENOENT && mSeen.refusedMedia.error == 0)
        mSeen.refusedMedia = {path, event.error};
}

WayEnd Way::end(const std::string& driverName) const {
    const std::lock_guard lock(mMutex);
    if (mHubMissing) return {EndPlace::kHub, {}, {}, {}};
    if (mFirstCommand) return {EndPlace::kCommands, *mFirstCommand, {}, {}};
    const bool opened = !mSeen.node.at.empty() && mSeen.node.error == 0;
    return opened ? WayEnd{} : endOf(mSeen, {driverName});
}

}  // namespace oisctl
