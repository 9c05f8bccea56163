#include "kernel/media_graph.h"

#include <linux/media.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <utility>

#include "kernel/user_memory.h"

namespace phone {

namespace {

constexpr int kLensDeviceNumber = 1;
constexpr const char* kLensDeviceModel = "nxa_camera_af";
// Lens entities of fitted modules. The ids stay below the 32 that the driver's walk reaches.
constexpr uint32_t kFirstLensId = 4;
constexpr uint32_t kLensIdStep = 3;
constexpr uint32_t kFirstLensNode = 10;
constexpr uint32_t kFirstLensMinor = 100;

void copyText(const std::string& text, std::span<char> to) {
    const size_t length = std::min(text.size(), to.size() - 1);
    std::copy_n(text.begin(), length, to.begin());
    std::fill(to.begin() + static_cast<std::ptrdiff_t>(length), to.end(), '\0');
}

MediaEntity makeEntity(uint32_t id, std::string name, uint32_t type, uint32_t minor, std::string node) {
    return {.id = id, .name = std::move(name), .type = type, .minor = minor, .node = std::move(node)};
}

MediaDevice lensDevice() {
    MediaDevice device{kLensDeviceNumber, kLensDeviceModel, "nxa-af", "", "platform:nxa-af", {}};
    device.entities = {
        makeEntity(1, "nxa-af-manager", kSubDeviceEntityType, 40, "v4l-subdev4"),
        makeEntity(2, "nxa-sensor 2-0010", kSensorEntityType, 41, "v4l-subdev5"),
        makeEntity(29, "nxa-focus 5-0018", kLensEntityType, 42, "v4l-subdev6"),
    };
    return device;
}

MediaDevice& lensDeviceOf(std::vector<MediaDevice>& devices) {
    const auto found = std::ranges::find(devices, kLensDeviceNumber, &MediaDevice::number);
    return found != devices.end() ? *found : devices.emplace_back(lensDevice());
}

}  // namespace

MediaGraph::MediaGraph() {
    MediaDevice processor{0, "nxa_camera_isp", "nxa-isp", "", "platform:nxa-isp", {}};
    processor.entities = {
        makeEntity(1, "nxa-isp-seninf", kSubDeviceEntityType, 20, "v4l-subdev0"),
        makeEntity(3, "nxa-isp-raw", kSubDeviceEntityType, 21, "v4l-subdev1"),
        makeEntity(17, "nxa-isp-preview", kVideoNodeEntityType, 22, "video0"),
    };
    processor.entities[0].pads = {MEDIA_PAD_FL_SOURCE};
    processor.entities[1].pads = {MEDIA_PAD_FL_SINK, MEDIA_PAD_FL_SOURCE};
    processor.entities[2].pads = {MEDIA_PAD_FL_SINK};
    processor.links = {{1, 0, 3, 0, MEDIA_LNK_FL_ENABLED | MEDIA_LNK_FL_IMMUTABLE},
                       {3, 1, 17, 0, MEDIA_LNK_FL_ENABLED}};
    MediaDevice codec{3, "nxa_codec", "nxa-codec", "", "platform:nxa-codec", {}};
    codec.entities = {makeEntity(1, "nxa-codec-enc", kVideoNodeEntityType, 60, "video8")};
    mDevices = {processor, lensDevice(), codec};
}

std::vector<MediaDevice> MediaGraph::devices() const {
    const std::lock_guard lock(mMutex);
    return mDevices;
}

void MediaGraph::setDevices(std::vector<MediaDevice> devices) {
    const std::lock_guard lock(mMutex);
    mDevices = std::move(devices);
}

void MediaGraph::change(const std::function<void(std::vector<MediaDevice>&)>& edit) {
    const std::lock_guard lock(mMutex);
    edit(mDevices);
}

std::string MediaGraph::lensNode(int32_t sensorDev) {
    return "v4l-subdev" + std::to_string(kFirstLensNode + static_cast<uint32_t>(sensorDev));
}

void MediaGraph::addLens(int32_t sensorDev, const std::string& entityName,
                         std::shared_ptr<Controller> controller) {
    removeLens(sensorDev);
    const std::lock_guard lock(mMutex);
    for (MediaDevice& device : mDevices) {
        for (MediaEntity& known : device.entities) {
            if (known.type != kLensEntityType || known.name != entityName) continue;
            known.controller = std::move(controller);
            return;
        }
    }
    MediaEntity lens =
        makeEntity(kFirstLensId + kLensIdStep * static_cast<uint32_t>(sensorDev), entityName, kLensEntityType,
                   kFirstLensMinor + static_cast<uint32_t>(sensorDev), lensNode(sensorDev));
    lens.controller = std::move(controller);
    std::vector<MediaEntity>& entities = lensDeviceOf(mDevices).entities;
    const auto after =
        std::ranges::find_if(entities, [&](const MediaEntity& other) { return other.id > lens.id; });
    entities.insert(after, std::move(lens));
}

void MediaGraph::removeLens(int32_t sensorDev) {
    const std::lock_guard lock(mMutex);
    for (MediaDevice& device : mDevices) {
        std::erase_if(device.entities,
                      [&](const MediaEntity& other) { return other.node == lensNode(sensorDev); });
    }
}

const MediaDevice* MediaGraph::find(int number) const {
    const auto found = std::ranges::find(mDevices, number, &MediaDevice::number);
    return found != mDevices.end() ? &*found : nullptr;
}

int MediaGraph::deviceInfo(int number, media_device_info& info) const {
    const std::lock_guard lock(mMutex);
    const MediaDevice* device = find(number);
    if (device == nullptr) return -ENODEV;
    info = {};
    copyText(device->driver, info.driver);
    copyText(device->model, info.model);
    copyText(device->serial, info.serial);
    copyText(device->busInfo, info.bus_info);
    info.media_version = device->version;
    info.driver_version = device->version;
    return 0;
}

int MediaGraph::enumerateEntity(int number, media_entity_desc& entity) const {
    const std::lock_guard lock(mMutex);
    const MediaDevice* device = find(number);
    if (device == nullptr) return -ENODEV;
    const bool next = (entity.id & MEDIA_ENT_ID_FLAG_NEXT) != 0;
    const uint32_t id = entity.id & ~static_cast<uint32_t>(MEDIA_ENT_ID_FLAG_NEXT);
    const auto found = std::ranges::find_if(device->entities, [&](const MediaEntity& candidate) {
        return next ? candidate.id > id : candidate.id == id;
    });
    if (found == device->entities.end()) return -EINVAL;
    entity = {};
    entity.id = found->id;
    copyText(found->name, entity.name);
    entity.type = found->type;
    entity.group_id = found->groupId;
    entity.pads = static_cast<uint16_t>(found->pads.size());
    entity.links = static_cast<uint16_t>(std::ranges::count(device->links, found->id, &MediaLink::source));
    entity.dev.major = found->major;
    entity.dev.minor = found->minor;
    return 0;
}

int MediaGraph::enumerateLinks(int number, const media_links_enum& places) const {
    const std::lock_guard lock(mMutex);
    const MediaDevice* device = find(number);
    if (device == nullptr) return -ENODEV;
    const auto found = std::ranges::find(device->entities, places.entity, &MediaEntity::id);
    if (found == device->entities.end()) return -EINVAL;
    std::vector<media_pad_desc> pads;
    for (const uint32_t flags : found->pads) {
        media_pad_desc& pad = pads.emplace_back();
        pad.entity = found->id;
        pad.index = static_cast<uint16_t>(pads.size() - 1);
        pad.flags = flags;
    }
    std::vector<media_link_desc> links;
    for (const MediaLink& from : device->links) {
        if (from.source != found->id) continue;
        media_link_desc& link = links.emplace_back();
        link.source.entity = from.source;
        link.source.index = from.sourcePad;
        link.sink.entity = from.sink;
        link.sink.index = from.sinkPad;
        link.flags = from.flags;
    }
    const bool copied =
        (places.pads == nullptr || copyToUser(places.pads, std::as_bytes(std::span(pads)))) &&
        (places.links == nullptr || copyToUser(places.links, std::as_bytes(std::span(links))));
    return copied ? 0 : -EFAULT;
}

std::optional<std::string> MediaGraph::sysfsLink(uint32_t major, uint32_t minor) const {
    const std::lock_guard lock(mMutex);
    for (const MediaDevice& device : mDevices) {
        for (const MediaEntity& candidate : device.entities) {
            if (candidate.major != major || candidate.minor != minor || candidate.node.empty()) continue;
            if (!candidate.hasLink) return std::nullopt;
            // "platform:NAME" is the device NAME on the platform bus.
            std::string path = device.busInfo;
            std::ranges::replace(path, ':', '/');
            return "../../devices/" + path + "/video4linux/" + candidate.node;
        }
    }
    return std::nullopt;
}

std::optional<MediaEntity> MediaGraph::entityByNode(std::string_view node) const {
    const std::lock_guard lock(mMutex);
    for (const MediaDevice& device : mDevices) {
        const auto found = std::ranges::find(device.entities, node, &MediaEntity::node);
        if (found != device.entities.end()) return *found;
    }
    return std::nullopt;
}

}  // namespace phone
