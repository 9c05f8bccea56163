#include "device/media_walk.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <linux/media.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string_view>

#include "device/descriptor.h"
#include "wire/layout.h"

namespace oisctl {

namespace {

constexpr int kMediaNodes = 256;        // as many as a kernel has
constexpr size_t kMostEntities = 4096;  // a kernel that never ends its list is not to be believed
constexpr size_t kLinkSize = 256;

void readNode(WalkedEntity& entity) {
    const std::string link = entity.linkPath();
    std::array<char, kLinkSize> target{};
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    if (length < 0) {
        entity.linkError = errno;
        return;
    }
    const std::string_view text(target.data(), static_cast<size_t>(length));
    entity.node = fmt::format("/dev/{}", text.substr(text.rfind('/') + 1));
}

void readPads(const Descriptor& media, WalkedEntity& entity, size_t pads, size_t links) {
    if (pads == 0 && links == 0) return;
    // Only links that begin at the entity are told, and not more of them than it has in all.
    std::vector<media_pad_desc> padRecords(pads);
    std::vector<media_link_desc> linkRecords(links);
    media_links_enum record{};
    record.entity = entity.id;
    record.pads = padRecords.data();
    record.links = linkRecords.data();
    entity.padsError = media.ask(MEDIA_IOC_ENUM_LINKS, &record);
    if (entity.padsError != 0) return;
    for (const media_pad_desc& pad : padRecords) entity.pads.push_back({pad.index, pad.flags});
    for (const media_link_desc& link : linkRecords) {
        if (link.source.entity != entity.id) continue;  // an unused place
        entity.links.push_back(
            {link.source.entity, link.source.index, link.sink.entity, link.sink.index, link.flags});
    }
}

void readEntities(const Descriptor& media, WalkedDevice& device) {
    uint32_t last = 0;
    while (device.entities.size() < kMostEntities) {
        media_entity_desc record{};
        record.id = last | MEDIA_ENT_ID_FLAG_NEXT;
        const int error = media.ask(MEDIA_IOC_ENUM_ENTITIES, &record);
        if (error != 0 || record.id <= last) {
            device.entitiesError = error == EINVAL ? 0 : error;  // that one is the list's regular end
            return;
        }
        last = record.id;
        WalkedEntity& entity =
            device.entities.emplace_back(WalkedEntity{.id = record.id,
                                                      .name = std::string(ois::textOf(record.name)),
                                                      .type = record.type,
                                                      .major = record.dev.major,
                                                      .minor = record.dev.minor});
        readNode(entity);
        readPads(media, entity, record.pads, record.links);
    }
}

void countEntities(const Descriptor& media, WalkedDevice& device) {
    for (uint32_t i = 0; i < kDriverEntitySteps; ++i) {
        media_entity_desc record{};
        record.id = i | MEDIA_ENT_ID_FLAG_NEXT;
        if (media.ask(MEDIA_IOC_ENUM_ENTITIES, &record) != 0) return;
        device.counted.push_back(record.id);
    }
}

std::optional<WalkedDevice> walkDevice(int number) {
    WalkedDevice device{.number = number, .path = fmt::format("/dev/media{}", number)};
    const Descriptor media(device.path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    device.openError = media.error();
    if (device.openError == ENOENT) return std::nullopt;
    if (device.openError != 0) return device;
    media_device_info info{};
    device.infoError = media.ask(MEDIA_IOC_DEVICE_INFO, &info);
    if (device.infoError != 0) return device;
    device.driver = ois::textOf(info.driver);
    device.model = ois::textOf(info.model);
    device.bus = ois::textOf(info.bus_info);
    readEntities(media, device);
    countEntities(media, device);
    return device;
}

}  // namespace

std::string WalkedEntity::linkPath() const {
    return fmt::format("/sys/dev/char/{}:{}", major, minor);
}

std::vector<WalkedDevice> walkMedia() {
    std::vector<WalkedDevice> devices;
    for (int number = 0; number < kMediaNodes; ++number) {
        if (auto device = walkDevice(number)) devices.push_back(std::move(*device));
    }
    return devices;
}

int openErrorOf(const std::string& node) {
    return Descriptor(node, O_RDWR | O_CLOEXEC).error();
}

}  // namespace oisctl
