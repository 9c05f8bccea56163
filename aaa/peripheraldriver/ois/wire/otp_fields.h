#pragma once
// Where the calibration fields of a module's one-time-programmable (OTP) memory stand.
//
// The customisation library gives each module an address map (OisCustExt): entry n holds the OTP address of
// something. This table says what the entries are, field by field, in the order in which the OTP dump lists
// the fields.
//
// Entries from 17 on are addresses as the controller counts them. The controller's address
// in kControllerBase is the OTP address behind the one in kControllerFlag, which is how one is turned into
// the other.

#include <cstddef>
#include <cstdint>

namespace ois::otp {

// Map entries of the module's own fields, and of the flags that tell which groups of fields were programmed.
enum Entry : size_t {
    kSensorIdHigh = 0,
    kSensorIdLow = 1,
    kLensId = 2,
    kActuatorId = 3,
    kMaterialIdFirst = 5,
    kMaterialIdLast = 6,
    kSerialFlag = 7,
    kControllerFlag = 8,  // the byte behind it tells that the controller's fields are there
    kSerialFirst = 9,
    kSerialLast = 10,
    kFuseIdFlag = 11,
    kFuseIdFirst = 13,
    kFuseIdLast = 14,
    kControllerBase = 15,
};

constexpr size_t kNoEntry = SIZE_MAX;

// A calibration field of the controller. Its bytes are `firstCount` in a row from the address in `firstEntry`
// on, and then, if there is a second entry, the one at its address. The dump prints the address in
// `printedEntry`.
struct Field {
    const char* name;
    size_t printedEntry;
    size_t firstEntry;
    int firstCount;
    size_t secondEntry;  // or kNoEntry
};

constexpr Field one(const char* name, size_t entry) {
    return {name, entry, entry, 1, kNoEntry};
}
constexpr Field run(const char* name, size_t entry, int count) {
    return {name, entry, entry, count, kNoEntry};
}
constexpr Field pair(const char* name, size_t first, size_t second) {
    return {name, second, first, 1, second};
}
constexpr Field threeAndOne(const char* name, size_t first, size_t second) {
    return {name, second, first, 3, second};
}

constexpr Field kCalibrationFields[] = {
    run("OIS_FW_VER", 17, 4),
    one("HPOLA", 18),
    one("HCRETRY", 19),
    run("HDRANGE", 20, 2),
    pair("XHMAXLMT", 21, 22),
    pair("XHMINLMT", 23, 24),
    pair("YHMAXLMT", 25, 26),
    pair("YHMINLMT", 27, 28),
    one("XHGAIN", 29),
    one("YHGAIN", 30),
    one("XHOFS", 31),
    one("YHOFS", 32),
    one("XHG", 33),
    one("YHG", 34),
    pair("XHMAX", 35, 36),
    pair("XHMIN", 37, 38),
    pair("YHMAX", 39, 40),
    pair("YHMIN", 41, 42),
    pair("XMECHACENTER", 43, 44),
    pair("YMECHACENTER", 45, 46),
    one("XHCMAXLMT", 47),
    one("XHCMINLMT", 48),
    one("YHCMAXLMT", 49),
    one("YHCMINLMT", 50),
    one("GYRO_POLA_X", 51),
    one("GYRO_POLA_Y", 52),
    threeAndOne("XGG", 59, 60),
    threeAndOne("YGG", 61, 62),
    // From here on the order is not that of the entries: it is the file's.
    pair("SR_X", 67, 68),
    pair("SR_Y", 69, 70),
    threeAndOne("LOOP_GAIN_X", 63, 64),
    threeAndOne("LOOP_GAIN_Y", 65, 66),
    one("gyroOrient", 53),
    one("gyroMirror", 54),
};

constexpr int64_t kWordSize = 4;

// A table of 4-byte words, from the address in one entry to the address in another, the last byte included.
struct WordTable {
    const char* name;
    size_t startEntry;
    size_t endEntry;
};

constexpr WordTable kWordTables[] = {
    {"AF_DRIFT_", 75, 76},
    {"LINEARITY_COEFF_", 77, 78},
    {"CROSSTALK_COEFF_", 79, 80},
};

}  // namespace ois::otp
