// A media graph as a TOML file describes it.

#include <limits>

#include "base/toml_reader.h"
#include "kernel/media_graph.h"

namespace phone {

namespace {

constexpr size_t kTextLength = 31;
constexpr unsigned kMajorShift = 16;
constexpr unsigned kMinorShift = 8;

MediaEntity readEntity(TableReader& table) {
    MediaEntity entity;
    table.require("id", "it is what the entity is enumerated by");
    table.require("name", "the lens is found by it");
    table.read("id", entity.id, 1);
    table.read("name", entity.name, kTextLength);
    table.read("type", entity.type);
    table.read("major", entity.major);
    table.read("minor", entity.minor);
    table.read("node", entity.node, kTextLength);
    table.finish();
    return entity;
}

MediaDevice readDevice(TableReader& table) {
    MediaDevice device;
    table.require("number", "it is that of /dev/mediaN");
    table.require("model", "the device with the lenses is found by it");
    table.read("number", device.number, 0);
    table.read("model", device.model, kTextLength);
    table.read("driver", device.driver, kTextLength);
    table.read("serial", device.serial, kTextLength);
    table.read("bus_info", device.busInfo, kTextLength);
    // As LINUX_VERSION_CODE has it.
    if (const auto version = table.integers("kernel_version", 0, UINT8_MAX, 3, 3)) {
        device.version = static_cast<uint32_t>((*version)[0] << kMajorShift | (*version)[1] << kMinorShift |
                                               (*version)[2]);
    }
    for (TableReader& entity : table.tables("entity")) device.entities.push_back(readEntity(entity));
    table.finish();
    return device;
}

}  // namespace

std::vector<MediaDevice> loadMediaDevices(const std::filesystem::path& file) {
    const toml::table root = parseTomlFile(file.string());
    TableReader table(root, "", file.string());
    table.require("device", "a graph without one has no lens");
    std::vector<MediaDevice> devices;
    for (TableReader& device : table.tables("device")) devices.push_back(readDevice(device));
    table.finish();
    return devices;
}

}  // namespace phone
