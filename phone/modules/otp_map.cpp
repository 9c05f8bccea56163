#include "modules/otp_map.h"

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "base/toml_reader.h"
#include "ois_drv.h"

namespace phone {

namespace {

// How a field's bytes follow from its map entries.
enum class Shape {
    kRun,          // one entry: that many bytes from its address on
    kPair,         // two entries: a byte at each
    kRange,        // two entries: first and last byte
    kThreeAndOne,  // two entries: three bytes from the first, one at the second
};
// Whose address space the entries are in.
enum class Space { kOtp, kController };

struct OtpField {
    std::string_view name;
    size_t entry;  // the first, if there are two
    Shape shape;
    Space space;
    size_t length = 1;  // bytes of a run
};

constexpr auto kOtp = Space::kOtp;
constexpr auto kController = Space::kController;

constexpr size_t kSerialFlagEntry = 7;
constexpr size_t kControllerFlagEntry = 8;  // the byte behind this address
constexpr size_t kFuseFlagEntry = 11;
constexpr size_t kControllerBaseEntry = 15;  // the controller's address of that byte
constexpr size_t kModuleFlagAddress = 0;

constexpr std::array kFields = {
    OtpField{"sensor_id", 0, Shape::kPair, kOtp},
    OtpField{"lens_id", 2, Shape::kRun, kOtp},
    OtpField{"actuor_id", 3, Shape::kRun, kOtp},
    OtpField{"material_id", 5, Shape::kRange, kOtp},
    OtpField{"SN", 9, Shape::kRange, kOtp},
    OtpField{"fuse_id", 13, Shape::kRange, kOtp},
    OtpField{"OIS_FW_VER", 17, Shape::kRun, kController, 4},
    OtpField{"HPOLA", 18, Shape::kRun, kController},
    OtpField{"HCRETRY", 19, Shape::kRun, kController},
    OtpField{"HDRANGE", 20, Shape::kRun, kController, 2},
    OtpField{"XHMAXLMT", 21, Shape::kPair, kController},
    OtpField{"XHMINLMT", 23, Shape::kPair, kController},
    OtpField{"YHMAXLMT", 25, Shape::kPair, kController},
    OtpField{"YHMINLMT", 27, Shape::kPair, kController},
    OtpField{"XHGAIN", 29, Shape::kRun, kController},
    OtpField{"YHGAIN", 30, Shape::kRun, kController},
    OtpField{"XHOFS", 31, Shape::kRun, kController},
    OtpField{"YHOFS", 32, Shape::kRun, kController},
    OtpField{"XHG", 33, Shape::kRun, kController},
    OtpField{"YHG", 34, Shape::kRun, kController},
    OtpField{"XHMAX", 35, Shape::kPair, kController},
    OtpField{"XHMIN", 37, Shape::kPair, kController},
    OtpField{"YHMAX", 39, Shape::kPair, kController},
    OtpField{"YHMIN", 41, Shape::kPair, kController},
    OtpField{"XMECHACENTER", 43, Shape::kPair, kController},
    OtpField{"YMECHACENTER", 45, Shape::kPair, kController},
    OtpField{"XHCMAXLMT", 47, Shape::kRun, kController},
    OtpField{"XHCMINLMT", 48, Shape::kRun, kController},
    OtpField{"YHCMAXLMT", 49, Shape::kRun, kController},
    OtpField{"YHCMINLMT", 50, Shape::kRun, kController},
    OtpField{"GYRO_POLA_X", 51, Shape::kRun, kController},
    OtpField{"GYRO_POLA_Y", 52, Shape::kRun, kController},
    OtpField{"gyroOrient", 53, Shape::kRun, kController},
    OtpField{"gyroMirror", 54, Shape::kRun, kController},
    OtpField{"XGG", 59, Shape::kThreeAndOne, kController},
    OtpField{"YGG", 61, Shape::kThreeAndOne, kController},
    OtpField{"LOOP_GAIN_X", 63, Shape::kThreeAndOne, kController},
    OtpField{"LOOP_GAIN_Y", 65, Shape::kThreeAndOne, kController},
    OtpField{"SR_X", 67, Shape::kPair, kController},
    OtpField{"SR_Y", 69, Shape::kPair, kController},
    OtpField{"AF_DRIFT", 75, Shape::kRange, kController},
    OtpField{"LINEARITY_COEFF", 77, Shape::kRange, kController},
    // Its last address would be entry 80, behind what the platform fills; so the table stays empty.
    OtpField{"CROSSTALK_COEFF", 79, Shape::kRun, kController},
};

struct Group {
    std::string_view name;
    size_t entry;  // of its flag; 0: the memory's first byte
};
constexpr std::array kGroups = {
    Group{"module", 0},
    Group{"serial", kSerialFlagEntry},
    Group{"fuse", kFuseFlagEntry},
    Group{"controller", kControllerFlagEntry},
};

bool hasTwoEntries(const OtpField& field) {
    return field.shape != Shape::kRun;
}

// Where an address of the map lies in the image.
int64_t imageOffset(const OtpAddresses& addresses, Space space, int64_t address) {
    if (space == Space::kOtp) return address;
    return address - addresses[kControllerBaseEntry] + addresses[kControllerFlagEntry] + 1;
}

// The field's bytes in the image, in the order in which they are read.
std::vector<int64_t> offsetsOf(const OtpField& field, const OtpAddresses& addresses) {
    const int64_t first = imageOffset(addresses, field.space, addresses[field.entry]);
    if (!hasTwoEntries(field)) {
        std::vector<int64_t> offsets;
        for (size_t i = 0; i < field.length; ++i) offsets.push_back(first + static_cast<int64_t>(i));
        return offsets;
    }
    const int64_t second = imageOffset(addresses, field.space, addresses[field.entry + 1]);
    if (field.shape == Shape::kPair) return {first, second};
    if (field.shape == Shape::kThreeAndOne) return {first, first + 1, first + 2, second};
    std::vector<int64_t> offsets;
    for (int64_t offset = first; offset <= second; ++offset) offsets.push_back(offset);
    return offsets;
}

void readAddresses(TableReader& table, OtpAddresses& addresses) {
    table.read("serial_flag", addresses[kSerialFlagEntry]);
    table.read("fuse_flag", addresses[kFuseFlagEntry]);
    table.read("controller_flag", addresses[kControllerFlagEntry]);
    table.read("controller_base", addresses[kControllerBaseEntry]);
    for (const OtpField& field : kFields) {
        if (!hasTwoEntries(field)) {
            table.read(field.name, addresses[field.entry]);
        } else if (const auto pair = table.integers(field.name, 0, UINT16_MAX, 2, 2)) {
            addresses[field.entry] = static_cast<uint16_t>((*pair)[0]);
            addresses[field.entry + 1] = static_cast<uint16_t>((*pair)[1]);
        }
    }
    table.finish();
}

size_t flagOffset(const Group& group, const OtpAddresses& addresses) {
    if (group.entry == 0) return kModuleFlagAddress;
    return addresses[group.entry] + (group.entry == kControllerFlagEntry ? size_t{1} : size_t{0});
}

std::string rangeReason(const OtpAddresses& addresses, Space space) {
    const int64_t low = space == Space::kOtp ? 0 : -imageOffset(addresses, space, 0);
    return "is not in the memory, which reaches from " + std::to_string(low) + " to " +
           std::to_string(low + static_cast<int64_t>(kOtpImageSize) - 1);
}

void checkAddresses(const TableReader& table, const OtpAddresses& addresses) {
    for (const Group& group : kGroups) {
        if (flagOffset(group, addresses) < kOtpImageSize) continue;
        table.fail(std::string(group.name) + "_flag", rangeReason(addresses, Space::kOtp));
    }
    for (const OtpField& field : kFields) {
        if (!table.has(field.name)) continue;
        for (const int64_t offset : offsetsOf(field, addresses)) {
            if (offset < 0 || offset >= static_cast<int64_t>(kOtpImageSize)) {
                table.fail(field.name, rangeReason(addresses, field.space));
            }
        }
    }
}

void setFlags(TableReader& otp, const OtpAddresses& addresses, std::vector<uint8_t>& image) {
    std::vector<std::string> programmed;
    programmed.reserve(kGroups.size());
    for (const Group& group : kGroups) programmed.emplace_back(group.name);
    if (auto named = otp.texts("programmed")) programmed = std::move(*named);
    image[kModuleFlagAddress] = 0;
    for (const std::string& name : programmed) {
        const auto group = std::ranges::find(kGroups, name, &Group::name);
        if (group == kGroups.end()) {
            otp.fail("programmed",
                     "holds \"" + name + "\"; it may hold \"module\", \"serial\", \"fuse\", \"controller\"");
        }
        image[flagOffset(*group, addresses)] = 1;
    }
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
    for (const OtpField& field : kFields) {
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
