#include "modules/otp_map.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

#include "base/toml_reader.h"
#include "ois_drv.h"
#include "wire/otp_fields.h"

namespace phone {

namespace {

using namespace ois::otp;

// A field's bytes are `firstCount` from the address in `firstEntry` on and the one at `secondEntry`; those of
// a range are all from the first address to the second.
struct OtpField {
    std::string name;
    size_t firstEntry;
    size_t secondEntry = kNoEntry;
    int firstCount = 1;
    bool range = false;
};

constexpr size_t kModuleFlagAddress = 0;
constexpr auto kImageEnd = static_cast<int64_t>(kOtpImageSize);

// In order of map entries, in which the seed's bytes are dealt out.
std::vector<OtpField> allFields() {
    std::vector<OtpField> fields = {
        {"sensor_id", kSensorIdHigh, kSensorIdLow},
        {"lens_id", kLensId},
        {"actuor_id", kActuatorId},
        {"material_id", kMaterialIdFirst, kMaterialIdLast, 0, true},
        {"SN", kSerialFirst, kSerialLast, 0, true},
        {"fuse_id", kFuseIdFirst, kFuseIdLast, 0, true},
    };
    for (const auto& field : kCalibrationFields) {
        fields.push_back({field.name, field.firstEntry, field.secondEntry, field.firstCount});
    }
    for (const WordTable& table : kWordTables) {
        const std::string_view name(table.name, std::string_view(table.name).rfind('_'));
        if (table.endEntry < OtpAddresses{}.size()) {
            fields.push_back({std::string(name), table.startEntry, table.endEntry, 0, true});
        } else {
            // Its last address is behind what the platform fills; so the table stays empty.
            fields.push_back({std::string(name), table.startEntry});
        }
    }
    std::ranges::sort(fields, {}, &OtpField::firstEntry);
    return fields;
}

const std::vector<OtpField>& fields() {
    static const std::vector<OtpField> all = allFields();
    return all;
}

struct Group {
    std::string_view name;
    size_t entry;  // of its flag; 0: the memory's first byte
};
constexpr std::array kGroups = {
    Group{"module", 0},
    Group{"serial", kSerialFlag},
    Group{"fuse", kFuseIdFlag},
    Group{"controller", kControllerFlag},
};

// Where an address of the map lies in the image. Entries behind the base are addresses as the controller
// counts them.
int64_t imageOffset(const OtpAddresses& addresses, size_t entry, int64_t address) {
    if (entry <= kControllerBase) return address;
    return address - addresses[kControllerBase] + addresses[kControllerFlag] + 1;
}

// The field's bytes in the image, in the order in which they are read.
std::vector<int64_t> offsetsOf(const OtpField& field, const OtpAddresses& addresses) {
    const auto offsetAt = [&](size_t entry) { return imageOffset(addresses, entry, addresses[entry]); };
    std::vector<int64_t> offsets;
    const int64_t first = offsetAt(field.firstEntry);
    const int64_t end = field.range ? offsetAt(field.secondEntry) : first + field.firstCount;
    for (int64_t offset = first; offset < end; ++offset) offsets.push_back(offset);
    if (field.secondEntry != kNoEntry) offsets.push_back(offsetAt(field.secondEntry));
    return offsets;
}

void readAddresses(TableReader& table, OtpAddresses& addresses) {
    table.read("serial_flag", addresses[kSerialFlag]);
    table.read("fuse_flag", addresses[kFuseIdFlag]);
    table.read("controller_flag", addresses[kControllerFlag]);
    table.read("controller_base", addresses[kControllerBase]);
    for (const OtpField& field : fields()) {
        if (field.secondEntry == kNoEntry) {
            table.read(field.name, addresses[field.firstEntry]);
        } else if (const auto pair = table.integers(field.name, 0, UINT16_MAX, 2, 2)) {
            if (field.range && (*pair)[0] > (*pair)[1]) table.fail(field.name, "ends before it begins");
            addresses[field.firstEntry] = static_cast<uint16_t>((*pair)[0]);
            addresses[field.secondEntry] = static_cast<uint16_t>((*pair)[1]);
        }
    }
    table.finish();
}

size_t flagOffset(const Group& group, const OtpAddresses& addresses) {
    if (group.entry == 0) return kModuleFlagAddress;
    return addresses[group.entry] + (group.entry == kControllerFlag ? size_t{1} : size_t{0});
}

std::string rangeReason(const OtpAddresses& addresses, size_t entry) {
    const int64_t low = -imageOffset(addresses, entry, 0);
    return fmt::format("is not in the memory, which reaches from {} to {}", low, low + kImageEnd - 1);
}

void checkAddresses(const TableReader& table, const OtpAddresses& addresses) {
    for (const Group& group : kGroups) {
        if (flagOffset(group, addresses) < kOtpImageSize) continue;
        table.fail(std::string(group.name) + "_flag", rangeReason(addresses, group.entry));
    }
    for (const OtpField& field : fields()) {
        if (!table.has(field.name)) continue;
        for (const int64_t offset : offsetsOf(field, addresses)) {
            if (offset < 0 || offset >= kImageEnd) {
                table.fail(field.name, rangeReason(addresses, field.firstEntry));
            }
        }
    }
}

void setFlags(TableReader& otp, const OtpAddresses& addresses, std::vector<uint8_t>& image) {
    const auto program = [&](const Group& group) { image[flagOffset(group, addresses)] = 1; };
    image[kModuleFlagAddress] = 0;
    if (!otp.has("programmed")) std::ranges::for_each(kGroups, program);
    otp.takeTexts("programmed", [&](const std::string& name) {
        const auto group = std::ranges::find(kGroups, name, &Group::name);
        if (group == kGroups.end()) {
            throw std::invalid_argument(
                fmt::format(R"(holds "{}"; it may hold "module", "serial", "fuse", "controller")", name));
        }
        program(*group);
    });
}

void fillField(const OtpField& field, const OtpAddresses& addresses, TableReader* values,
               std::mt19937& random, std::vector<uint8_t>& image) {
    const std::vector<int64_t> offsets = offsetsOf(field, addresses);
    const auto given = values == nullptr
                           ? std::nullopt
                           : values->integers(field.name, 0, UINT8_MAX, offsets.size(), offsets.size());
    for (size_t i = 0; i < offsets.size(); ++i) {
        const auto byte = static_cast<uint8_t>(given ? static_cast<uint32_t>((*given)[i]) : random());
        image[static_cast<size_t>(offsets[i])] = byte;
    }
}

}  // namespace

Otp emptyOtp() {
    return {{}, std::vector<uint8_t>(kOtpImageSize)};
}

Otp readOtp(TableReader& otp) {
    Otp result = emptyOtp();
    uint32_t seed = 0;
    otp.read("seed", seed);
    std::mt19937 random(seed);

    otp.require("address", "it names the addresses of the fields");
    std::optional<TableReader> addresses = otp.table("address");
    readAddresses(*addresses, result.addresses);
    checkAddresses(*addresses, result.addresses);

    std::optional<TableReader> values = otp.table("value");
    for (const OtpField& field : fields()) {
        if (addresses->has(field.name)) {
            fillField(field, result.addresses, values ? &*values : nullptr, random, result.image);
        }
    }
    if (values) values->finish();
    setFlags(otp, result.addresses, result.image);
    otp.finish();
    return result;
}

}  // namespace phone
