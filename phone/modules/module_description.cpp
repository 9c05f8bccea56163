#include "modules/module_description.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <utility>

#include "base/file_content.h"
#include "base/toml_reader.h"
#include "modules/customisation_fields.h"
#include "modules/otp_map.h"
#include "modules/shipped_modules.h"

namespace phone {

namespace {

constexpr size_t kNameLength = 63;
constexpr size_t kSummaryLength = 200;
constexpr size_t kEntityNameLength = 31;
constexpr uint32_t kDefaultClockHz = 24000000;
const std::vector<double> kNone;

void readField(TableReader& table, const CustomisationField& field, ois::OisCustInfo& info) {
    const RecordField& record = field.record;
    auto* target = reinterpret_cast<std::byte*>(&info) + record.offset;
    const NumberRange range{field.least, field.greatest};
    if (record.type == FieldType::kText) {
        const auto text = table.text(record.name, static_cast<size_t>(field.greatest));
        if (text) std::memcpy(target, text->data(), text->size());
    } else if (record.type == FieldType::kFloats) {
        const size_t capacity = record.size / sizeof(float);
        for (const double value : table.numbers(record.name, range, 0, capacity).value_or(kNone)) {
            const auto element = static_cast<float>(value);
            target = static_cast<std::byte*>(std::memcpy(target, &element, sizeof element)) + sizeof element;
        }
    } else if (record.type == FieldType::kFloat) {
        float value = 0;
        table.read(record.name, value, range);
        std::memcpy(target, &value, sizeof value);
    } else {
        const auto value = table.integer(record.name, static_cast<int64_t>(field.least),
                                         static_cast<int64_t>(field.greatest));
        if (value) std::memcpy(target, &*value, record.size);  // little-endian, as the record
    }
}

void readCustomisation(TableReader& table, ModuleDescription& module) {
    table.read("hasOis", module.hasOis);
    if (module.hasOis) {
        table.require("driverName", "it finds the controller in the media graph");
        table.require("gainFormat", "it says how gains are coded: 1 float, 2 integer, 3 Q31");
        table.require("mOisIcName", "it names the controller chip");
        table.require("cameraTypeName", "it names dump files and firmware");
    }
    table.read("status", module.status);
    table.read("driverName", module.driverName, ois::kDriverNameSize - 1);
    for (const CustomisationField& field : kCustomisationFields) readField(table, field, module.custInfo);
    const size_t count = table.count("coordinateX");
    if (table.count("coordinateY") != count) {
        table.fail("coordinateY", fmt::format("has {} values; coordinateX has {}, and they go in pairs",
                                              table.count("coordinateY"), count));
    }
    if (!table.has("coordinateNum")) module.custInfo.coordinateNum = static_cast<uint16_t>(count);
    table.finish();
}

void readGain(TableReader& table, ois::OisGain& gain) {
    table.read("valueXf", gain.valueXf);
    table.read("valueYf", gain.valueYf);
    table.read("valueXi", gain.valueXi);
    table.read("valueYi", gain.valueYi);
    table.finish();
}

// Each word carries x in its low half and y in its high half.
void readHallInfo(TableReader& table, ois::OisHallInfo& info) {
    constexpr unsigned kHighHalf = 16;
    uint16_t upperX = 0, upperY = 0, lowerX = 0, lowerY = 0;
    table.read("centerX", info.centerX);
    table.read("centerY", info.centerY);
    table.read("upperX", upperX);
    table.read("upperY", upperY);
    table.read("lowerX", lowerX);
    table.read("lowerY", lowerY);
    info.upperWord = upperX | uint32_t{upperY} << kHighHalf;
    info.lowerWord = lowerX | uint32_t{lowerY} << kHighHalf;
    table.finish();
}

void readController(TableReader& table, ModuleDescription& module) {
    table.read("entityName", module.entityName, kEntityNameLength);
    table.read("firmwareVersion", module.firmwareVersion);
    table.read("clockHz", module.clockHz);
    if (auto gain = table.table("gain")) readGain(*gain, module.gain);
    if (auto hallInfo = table.table("hallInfo")) readHallInfo(*hallInfo, module.hallInfo);
    table.finish();
}

// One axis' half of the upper word minus that of the lower.
std::array<double, 2> hallSpans(const ois::OisHallInfo& hall) {
    constexpr unsigned kHighHalf = 16;
    return {(hall.upperWord & UINT16_MAX) - double(hall.lowerWord & UINT16_MAX),
            (hall.upperWord >> kHighHalf) - double(hall.lowerWord >> kHighHalf)};
}

}  // namespace

// Computed apart from the driver on purpose: what its bring-up derives is held against this.
std::array<double, 2> calibratedHallPerAngle(const ModuleDescription& module) {
    const ois::OisGain& gain = module.gain;
    switch (module.custInfo.gainFormat) {
        case ois::kGainFloat: {
            const double scale = double{module.custInfo.angleAmplitude} * ois::kFloatGainScale;
            return {gain.valueXf * scale, gain.valueYf * scale};
        }
        case ois::kGainInteger: {
            // Whole counts: the driver divides integers here.
            const auto amplitude = [](int64_t gainValue) {
                const int64_t counts = gainValue * ois::kIntegerGainNumerator / ois::kIntegerGainDenominator;
                return static_cast<double>(counts);
            };
            return {amplitude(gain.valueXi), amplitude(gain.valueYi)};
        }
        case ois::kGainQ31: {
            const double range = module.custInfo.hallRange * ois::kHallRangeSteps;
            const auto [x, y] = hallSpans(module.hallInfo);
            return {range / (x * ois::kHallSpanUnit), range / (y * ois::kHallSpanUnit)};
        }
        default:
            return {};
    }
}

namespace {

// What the calibration says holds for the lens, unless the description says otherwise.
void calibrateLens(ModuleDescription& module) {
    StabiliserSettings& lens = module.stabiliser;
    lens.hallCenterX = module.hallInfo.centerX;
    lens.hallCenterY = module.hallInfo.centerY;
    const auto [x, y] = calibratedHallPerAngle(module);
    if (std::isfinite(x) && x != 0) lens.hallPerAngleX = x;
    if (std::isfinite(y) && y != 0) lens.hallPerAngleY = y;
}

void readStabiliser(TableReader& table, StabiliserSettings& settings) {
    constexpr double kMinPositive = 1e-3;
    constexpr double kMinHighPassHz = 0.05;
    table.read("hallCenterX", settings.hallCenterX);
    table.read("hallCenterY", settings.hallCenterY);
    table.read("hallPerAngleX", settings.hallPerAngleX);
    table.read("hallPerAngleY", settings.hallPerAngleY);
    table.read("limitAngle", settings.limitAngle, {kMinPositive});
    table.read("bandwidthHz", settings.bandwidthHz, {kMinPositive});
    table.read("damping", settings.damping, {0});
    table.read("highPassHz", settings.highPassHz, {kMinHighPassHz});
    table.read("hallNoiseCounts", settings.hallNoiseCounts, {0});
    table.read("gyroLsbPerRadS", settings.gyroLsbPerRadS, {kMinPositive});
    table.read("accLsbPerMS2", settings.accLsbPerMS2, {kMinPositive});
    table.read("gyroNoiseRadS", settings.gyroNoiseRadS, {0});
    table.read("accNoiseMS2", settings.accNoiseMS2, {0});
    table.read("seed", settings.seed, 0, std::numeric_limits<int64_t>::max());
    const size_t axes = settings.gyroBiasRadS.size();
    if (const auto bias = table.numbers("gyroBiasRadS", {}, axes, axes)) {
        std::ranges::copy(*bias, settings.gyroBiasRadS.begin());
    }
    table.finish();
}

// Either the bytes themselves, or how many and a seed.
void readFlash(TableReader& table, ModuleDescription& module) {
    table.read("base", module.flashBase);
    const auto data = table.integers("data", 0, UINT8_MAX, 0, ois::kFlashDataSize);
    const auto length = table.integer("length", 0, static_cast<int64_t>(ois::kFlashDataSize));
    uint32_t seed = 0;
    table.read("seed", seed);
    if (data && length) table.fail("length", "goes with seed; the data has its own length");
    if (data) {
        std::ranges::transform(*data, std::back_inserter(module.flashData),
                               [](int64_t byte) { return static_cast<uint8_t>(byte); });
    } else if (length) {
        std::mt19937 random(seed);
        module.flashData.resize(static_cast<size_t>(*length));
        std::ranges::generate(module.flashData, [&random] { return static_cast<uint8_t>(random()); });
    }
    table.finish();
}

ModuleDescription describe(const toml::table& root, const std::string& source) {
    ModuleDescription module;
    module.source = source;
    module.clockHz = kDefaultClockHz;
    TableReader table(root, "", source);
    table.require("name", "tools refer to the module by it");
    table.require("customisation", "it is what the customisation library answers");
    table.read("name", module.name, kNameLength);
    table.read("summary", module.summary, kSummaryLength);
    auto customisation = table.table("customisation");
    readCustomisation(*customisation, module);
    if (auto controller = table.table("controller")) readController(*controller, module);
    calibrateLens(module);
    if (auto stabiliser = table.table("stabiliser")) readStabiliser(*stabiliser, module.stabiliser);
    auto otpTable = table.table("otp");
    Otp otp = otpTable ? readOtp(*otpTable) : emptyOtp();
    module.otpAddresses = otp.addresses;
    module.otpImage = std::move(otp.image);
    if (auto flash = table.table("flash")) readFlash(*flash, module);
    table.finish();
    return module;
}

std::vector<ModuleDescription> parseShipped() {
    std::vector<ModuleDescription> modules;
    for (const ShippedModule& shipped : kShippedModules) {
        modules.push_back(parseModule(shipped.text, shipped.file));
        modules.back().source = "built in";
    }
    return modules;
}

}  // namespace

ModuleDescription loadModule(const std::filesystem::path& file) {
    const std::string source = file.string();
    return describe(parseTomlFile(source), source);
}

ModuleDescription parseModule(std::string_view text, const std::string& source) {
    return describe(parseToml(text, source), source);
}

const std::vector<ModuleDescription>& shippedModules() {
    static const std::vector<ModuleDescription> modules = parseShipped();
    return modules;
}

ModuleDescription moduleByName(const std::string& nameOrFile) {
    const std::vector<ModuleDescription>& shipped = shippedModules();
    const auto found = std::ranges::find(shipped, nameOrFile, &ModuleDescription::name);
    if (found != shipped.end()) return *found;
    std::error_code ignored;
    if (std::filesystem::exists(nameOrFile, ignored)) return loadModule(nameOrFile);
    std::vector<std::string_view> names(shipped.size());
    std::ranges::transform(shipped, names.begin(), &ModuleDescription::name);
    throw std::runtime_error(
        fmt::format("{}: neither a file nor a module; there are {}", nameOrFile, fmt::join(names, ", ")));
}

std::string moduleText(const std::string& nameOrFile) {
    static_cast<void>(moduleByName(nameOrFile));
    const std::vector<ModuleDescription>& shipped = shippedModules();
    for (size_t i = 0; i < shipped.size(); ++i) {
        if (shipped[i].name == nameOrFile) return kShippedModules[i].text;
    }
    return readTextFile(nameOrFile);
}

}  // namespace phone
