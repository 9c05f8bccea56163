#pragma once
// The phone's media devices: what the kernel answers about them, and the nodes that stand for their entities.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct media_device_info;
struct media_entity_desc;
struct media_links_enum;

namespace phone {

class Controller;

inline constexpr uint32_t kLensEntityType = 0x20003;
inline constexpr uint32_t kSensorEntityType = 0x20001;
inline constexpr uint32_t kSubDeviceEntityType = 0x20000;
inline constexpr uint32_t kVideoNodeEntityType = 0x10001;
inline constexpr uint32_t kVideoMajor = 81;

struct MediaEntity {
    uint32_t id = 0;
    std::string name{};  // at most 31 characters
    uint32_t type = kLensEntityType;
    uint32_t groupId = 0;  // kernels have long had no groups
    uint32_t major = kVideoMajor;
    uint32_t minor = 0;
    std::string node{};   // under /dev, such as "v4l-subdev10"; empty: no node
    bool hasLink = true;  // /sys/dev/char/MAJOR:MINOR exists
    // Answers the private requests; without one they are unknown.
    std::shared_ptr<Controller> controller{};
    std::vector<uint32_t> pads{};  // MEDIA_PAD_FL_* of each
};

struct MediaLink {
    uint32_t source = 0;  // an entity's id
    uint16_t sourcePad = 0;
    uint32_t sink = 0;
    uint16_t sinkPad = 0;
    uint32_t flags = 0;  // MEDIA_LNK_FL_*
};

struct MediaDevice {
    int number = 0;  // of /dev/mediaN
    std::string model;
    std::string driver;
    std::string serial;
    std::string busInfo;
    std::vector<MediaEntity> entities;           // in the order in which the kernel registered them
    uint32_t version = (5U << 16) | (15U << 8);  // of the kernel
    std::vector<MediaLink> links{};
};

// The devices that a TOML file describes: [[device]] with number, model, driver, serial, bus_info and
// kernel_version, each with [[device.entity]] entries of id, name, type, major, minor and node. Throws
// std::runtime_error "FILE:LINE: reason".
std::vector<MediaDevice> loadMediaDevices(const std::filesystem::path& file);

// Thread-safe.
class MediaGraph {
  public:
    // As this phone has it from the start: an image signal processor as media0, the camera's lenses as media1
    // ("nxa_camera_af", where fit() adds a lens entity per module), no media2, a codec as media3.
    MediaGraph();

    // A copy; change it with change().
    std::vector<MediaDevice> devices() const;
    void setDevices(std::vector<MediaDevice> devices);
    // Runs `edit` on the devices: add, remove, rename, renumber what you like. Nodes that are open stay open.
    void change(const std::function<void(std::vector<MediaDevice>&)>& edit);

    // Puts the lens of the module at that sensor position into the lens device, as fit() does; the device is
    // made anew if it is gone. A lens entity of that name that is there already is taken instead.
    void addLens(int32_t sensorDev, const std::string& entityName, std::shared_ptr<Controller> controller);
    void removeLens(int32_t sensorDev);
    // The node under /dev that addLens gives a sensor position's lens: "v4l-subdev10" for 0.
    static std::string lensNode(int32_t sensorDev);

    // For the interposed calls (kernel/kernel.cpp). Results are 0 or a negative errno.
    int deviceInfo(int number, media_device_info& info) const;
    // As the kernel: with the next-flag, the first registered entity whose id is greater.
    int enumerateEntity(int number, media_entity_desc& entity) const;
    // Fills the caller's own arrays, of the lengths that enumerateEntity told.
    int enumerateLinks(int number, const media_links_enum& places) const;
    // Target of /sys/dev/char/MAJOR:MINOR.
    std::optional<std::string> sysfsLink(uint32_t major, uint32_t minor) const;
    // The entity whose node has that name.
    std::optional<MediaEntity> entityByNode(std::string_view node) const;

  private:
    const MediaDevice* find(int number) const;

    mutable std::mutex mMutex;
    std::vector<MediaDevice> mDevices;
};

}  // namespace phone
