// Finding the OIS sub-device in the kernel's media graph.

#include <fcntl.h>
#include <linux/media.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "log.h"
#include "ois_drv.h"

namespace {

constexpr int kMediaNodeCount = 32;         // /dev/media0 to /dev/media31
constexpr uint32_t kEntityWalkLength = 32;  // ids that are asked for
constexpr uint32_t kLensEntityType = MEDIA_ENT_F_OLD_SUBDEV_BASE + 3;
static_assert(kLensEntityType == 0x20003);
constexpr size_t kPathSize = 32;
constexpr size_t kLinkSize = 256;

// What follows the last '/', or all of it.
const char* lastComponent(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

}  // namespace

int32_t OISDrv::GetV4l2MediaDevice(const char* name) {
    if (name == nullptr) return -1;
    for (int number = 0; number < kMediaNodeCount; ++number) {
        char path[kPathSize] = {};
        if (std::snprintf(path, sizeof path, "/dev/media%d", number) < 0) {
            OIS_LOG(kDebug, "snprintf failed error(%s).", std::strerror(errno));
            continue;
        }
        const int media = open(path, O_RDWR | O_NONBLOCK);
        if (media < 0) {
            const int error = errno;
            OIS_LOG(kDebug, "Cannot open '%s': %d, %s", path, error, std::strerror(error));
            continue;
        }
        media_device_info info{};
        if (ioctl(media, MEDIA_IOC_DEVICE_INFO, &info) < 0) {
            OIS_LOG(kDebug, "Failed to get device info for %s", path);
        } else if (ois::textOf(info.model).starts_with(name)) {
            OIS_LOG(kDebug, "Found media device (%s)", name);
            return media;
        }
        close(media);
    }
    return -1;
}

int32_t OISDrv::GetV4l2SubDevName(int32_t major, int32_t minor, char* path) {
    char link[kPathSize] = {};
    if (std::snprintf(link, sizeof link, "/sys/dev/char/%u:%u", static_cast<uint32_t>(major),
                      static_cast<uint32_t>(minor)) < 0) {
        OIS_LOG(kError, "snprintf failed error(%s).", std::strerror(errno));
    }
    char target[kLinkSize] = {};
    if (readlink(link, target, sizeof target - 1) < 0) {
        OIS_LOG(kError, "readlink failed error(%s).", std::strerror(errno));
        return 0;
    }
    if (std::snprintf(path, kPathSize, "/dev/%s", lastComponent(target)) < 0) {
        OIS_LOG(kError, "snprintf failed error(%s).", std::strerror(errno));
    }
    OIS_LOG(kDebug, "readlink:%s\n", path);
    return 1;
}

int32_t OISDrv::GetV4l2SubDevice(const char* driverName) {
    char mediaName[kPathSize] = {};
    if (std::snprintf(mediaName, sizeof mediaName, "%s", OIS_MEDIA_MODEL) < 0) return -1;
    const int32_t media = GetV4l2MediaDevice(mediaName);
    if (media < 0) return -1;

    char path[kPathSize] = {};
    bool found = false;
    // The kernel gets the loop's counter, not the id of the entity seen last: with sparse ids an entity is
    // seen more than once, and none beyond the first with an id above 31 is reached.
    for (uint32_t i = 0; i < kEntityWalkLength && !found; ++i) {
        media_entity_desc entity{};
        entity.id = i | MEDIA_ENT_ID_FLAG_NEXT;
        if (ioctl(media, MEDIA_IOC_ENUM_ENTITIES, &entity) < 0) {
            OIS_LOG(kDebug, "Done enumerating media entities, %s\n", std::strerror(errno));
            close(media);
            return -1;
        }
        const std::string name(ois::textOf(entity.name));  // the field itself need not be terminated
        OIS_LOG(kDebug, "entity name %s, type 0x%x, group id %d, major %d minor %d\n", name.c_str(),
                entity.type, static_cast<int32_t>(entity.group_id), static_cast<int32_t>(entity.dev.major),
                static_cast<int32_t>(entity.dev.minor));
        if (entity.type != kLensEntityType) continue;
        OIS_LOG(kDebug, "driver name:%s entity name:%s", driverName, name.c_str());
        found = name.starts_with(driverName) &&
                GetV4l2SubDevName(static_cast<int32_t>(entity.dev.major),
                                  static_cast<int32_t>(entity.dev.minor), path) != 0;
    }
    if (!found) {
        close(media);
        return -1;
    }
    const int32_t subDevice = open(path, O_RDWR);
    const int error = errno;
    OIS_LOG(kDebug, "Open subdev : %d (%s)\n", subDevice, path);
    close(media);
    errno = error;  // FirmwareUpdate prints it
    return subDevice;
}
