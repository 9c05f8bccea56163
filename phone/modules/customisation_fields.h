#pragma once
// The fields of a module's customisation block: where each lies, what a description may say, and what it
// means. Descriptions are read, shown and decoded by this table.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "trace/decode.h"
#include "wire/customisation.h"
#include "wire/records.h"

namespace phone {

struct CustomisationField {
    RecordField record;
    std::string_view unit;
    std::string_view meaning;
    // Of the value, of each one of an array, or of a text's length.
    double least;
    double greatest;
};

namespace customisation {

using Block = ois::OisCustInfo;
constexpr double kUnbounded = std::numeric_limits<float>::max();

constexpr CustomisationField word(std::string_view name, size_t offset, std::string_view unit,
                                  std::string_view meaning, double least = 0, double greatest = UINT16_MAX) {
    return {{name, FieldType::kUnsigned, offset, sizeof(uint16_t)}, unit, meaning, least, greatest};
}
constexpr CustomisationField real(std::string_view name, size_t offset, std::string_view unit,
                                  std::string_view meaning, double least = -kUnbounded) {
    return {{name, FieldType::kFloat, offset, sizeof(float)}, unit, meaning, least, kUnbounded};
}
constexpr CustomisationField coordinates(std::string_view name, size_t offset, std::string_view meaning) {
    const size_t size = sizeof Block::coordinateX;
    return {{name, FieldType::kFloats, offset, size, false, "coordinateNum"},
            "counts",
            meaning,
            -kUnbounded,
            kUnbounded};
}
constexpr CustomisationField text(std::string_view name, size_t offset, size_t size, size_t maxLength,
                                  std::string_view meaning) {
    return {{name, FieldType::kText, offset, size}, "", meaning, 0, static_cast<double>(maxLength)};
}

}  // namespace customisation

inline constexpr auto kCustomisationFields = [] {
    using namespace customisation;
    return std::array{
        word("gainFormat", offsetof(Block, gainFormat), "", "coding of gains: 1 float, 2 integer, 3 Q31",
             ois::kGainFloat, ois::kGainQ31),
        word("hallRange", offsetof(Block, hallRange), "counts", "hall range of the lens, for gain format 3"),
        word("accSupport", offsetof(Block, accSupport), "", "not 0: accelerometer compensation"),
        word("accDistance", offsetof(Block, accDistance), "mm", "object distance until one is known"),
        word("actOisSupport", offsetof(Block, actOisSupport), "", "1: angle-based active OIS"),
        word("zoomActOisSupport", offsetof(Block, zoomActOisSupport), "", "not 0: zoom-triggered active OIS"),
        word("actuatorDetectSupport", offsetof(Block, actuatorDetectSupport), "",
             "not 0: actuator defect detection"),
        word("extraParamSupport", offsetof(Block, extraParamSupport), "",
             "not 0: requests carry an extra parameter"),
        word("camera_type", offsetof(Block, camera_type), "", "AF drift: 1 position * 64, 2 position"),
        word("streamOnDelay", offsetof(Block, streamOnDelay), "us", "wait after a stream's start"),
        word("coordinateNum", offsetof(Block, coordinateNum), "",
             "test positions of the defect detector; as many as coordinateX if left out", 0,
             ois::kCoordinateCapacity),
        CustomisationField{{"useSensorHub", FieldType::kUnsigned, offsetof(Block, useSensorHub), 1},
                           "",
                           "0: lens sub-device, else sensor hub",
                           0,
                           UINT8_MAX},
        real("angleAmplitude", offsetof(Block, angleAmplitude), "deg", "angle unit per lens amplitude"),
        real("max_error_threshold", offsetof(Block, max_error_threshold), "counts",
             "a test position's error that is a defect", 0),
        real("max_sum_error_threshold", offsetof(Block, max_sum_error_threshold), "counts",
             "sum of errors that is a defect", 0),
        real("zoomScale", offsetof(Block, zoomScale), "", "zoom factor of the module; 0: none", 0),
        real("actOisAngle", offsetof(Block, actOisAngle), "deg", "angle sent with active OIS state 2"),
        coordinates("coordinateX", offsetof(Block, coordinateX), "test positions from the hall centre, x"),
        coordinates("coordinateY", offsetof(Block, coordinateY), "test positions from the hall centre, y"),
        text("mOisIcName", offsetof(Block, mOisIcName), sizeof Block::mOisIcName,
             sizeof Block::mOisIcName - 1, "controller chip"),
        text("cameraTypeName", offsetof(Block, cameraTypeName), sizeof Block::cameraTypeName,
             sizeof Block::cameraTypeName, "camera type, in the names of dump files and firmware"),
    };
}();

// Every byte of the block is some field's, but the reserved ones.
static_assert([] {
    size_t bytes = sizeof ois::OisCustInfo::reserved0 + sizeof ois::OisCustInfo::reserved1 +
                   sizeof ois::OisCustInfo::reserved2;
    for (const CustomisationField& field : kCustomisationFields) bytes += field.record.size;
    return bytes == sizeof(ois::OisCustInfo);
}());

}  // namespace phone
