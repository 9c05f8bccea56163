#include "modules/module_description.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <utility>

#include "base/toml_reader.h"
#include "modules/otp_map.h"
#include "modules/shipped_modules.h"

namespace phone {

namespace {

constexpr size_t kNameLength = 63;
constexpr size_t kSummaryLength = 200;
constexpr size_t kEntityNameLength = 31;
constexpr uint32_t kDefaultClockHz = 24000000;

void readChars(TableReader& table, std::string_view key, std::span<char> field, bool terminated) {
    const auto text = table.text(key, field.size() - (terminated ? 1 : 0));
    if (text) std::memcpy(field.data(), text->data(), text->size());
}

void readCoordinates(TableReader& table, ois::OisCustInfo& info) {
    constexpr double kUnbounded = std::numeric_limits<float>::max();
    const auto x = table.numbers("coordinateX", -kUnbounded, kUnbounded, 0, ois::kCoordinateCapacity);
    const auto y = table.numbers("coordinateY", -kUnbounded, kUnbounded, 0, ois::kCoordinateCapacity);
    const size_t count = x ? x->size() : 0;
    if (count != (y ? y->size() : 0)) {
        table.fail("coordinateY", "has " + std::to_string(y ? y->size() : 0) + " values; coordinateX has " +
                                      std::to_string(count) + ", and they go in pairs");
    }
    for (size_t i = 0; i < count; ++i) {
        info.coordinateX[i] = static_cast<float>((*x)[i]);
        info.coordinateY[i] = static_cast<float>((*y)[i]);
    }
    info.coordinateNum = static_cast<uint16_t>(count);
    table.read("coordinateNum", info.coordinateNum, 0, ois::kCoordinateCapacity);
}

void readCustomisation(TableReader& table, ModuleDescription& module) {
    ois::OisCustInfo& info = module.custInfo;
    table.read("hasOis", module.hasOis);
    if (module.hasOis) {
        table.require("driverName", "it finds the controller in the media graph");
        table.require("gainFormat", "it says how gains are coded: 1 float, 2 integer, 3 Q31");
        table.require("mOisIcName", "it names the controller chip");
        table.require("cameraTypeName", "it names dump files and firmware");
    }
    table.read("status", module.status);
    table.read("driverName", module.driverName, ois::kDriverNameSize - 1);
    table.read("gainFormat", info.gainFormat, ois::kGainFloat, ois::kGainQ31);
    table.read("hallRange", info.hallRange);
    table.read("accSupport", info.accSupport);
    table.read("accDistance", info.accDistance);
    table.read("actOisSupport", info.actOisSupport);
    table.read("zoomActOisSupport", info.zoomActOisSupport);
    table.read("actuatorDetectSupport", info.actuatorDetectSupport);
    table.read("extraParamSupport", info.extraParamSupport);
    table.read("camera_type", info.camera_type);
    table.read("streamOnDelay", info.streamOnDelay);
    table.read("useSensorHub", info.useSensorHub);
    table.read("angleAmplitude", info.angleAmplitude);
    table.read("max_error_threshold", info.max_error_threshold, 0);
    table.read("max_sum_error_threshold", info.max_sum_error_threshold, 0);
    table.read("zoomScale", info.zoomScale, 0);
    table.read("actOisAngle", info.actOisAngle);
    readChars(table, "mOisIcName", info.mOisIcName, true);
    readChars(table, "cameraTypeName", info.cameraTypeName, false);
    readCoordinates(table, info);
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

// Hall counts per angle unit, as the driver will derive them from gains and hall calibration.
std::array<double, 2> calibratedHallPerAngle(const ModuleDescription& module) {
    constexpr double kFloatScale = 1000;
    constexpr double kIntegerNumerator = 1333;
    constexpr double kIntegerDenominator = 8192;
    constexpr double kRangeScale = 6;
    constexpr double kSpanScale = 0.1;
    constexpr unsigned kHighHalf = 16;
    const ois::OisGain& gain = module.gain;
    const ois::OisHallInfo& hall = module.hallInfo;
    switch (module.custInfo.gainFormat) {
        case ois::kGainFloat: {
            const double scale = module.custInfo.angleAmplitude * kFloatScale;
            return {gain.valueXf * scale, gain.valueYf * scale};
        }
        case ois::kGainInteger:
            // Whole counts: the driver divides integers here.
            return {std::trunc(gain.valueXi * kIntegerNumerator / kIntegerDenominator),
                    std::trunc(gain.valueYi * kIntegerNumerator / kIntegerDenominator)};
        case ois::kGainQ31: {
            const double range = module.custInfo.hallRange * kRangeScale;
            const auto spanX = (hall.upperWord & UINT16_MAX) - double(hall.lowerWord & UINT16_MAX);
            const auto spanY = (hall.upperWord >> kHighHalf) - double(hall.lowerWord >> kHighHalf);
            return {range / (spanX * kSpanScale), range / (spanY * kSpanScale)};
        }
        default:
            return {};
    }
}

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
    constexpr double kUnbounded = std::numeric_limits<float>::max();
    constexpr double kMinPositive = 1e-3;
    constexpr double kMinHighPassHz = 0.05;
    table.read("hallCenterX", settings.hallCenterX);
    table.read("hallCenterY", settings.hallCenterY);
    table.read("hallPerAngleX", settings.hallPerAngleX);
    table.read("hallPerAngleY", settings.hallPerAngleY);
    table.read("limitAngle", settings.limitAngle, kMinPositive);
    table.read("bandwidthHz", settings.bandwidthHz, kMinPositive);
    table.read("damping", settings.damping, 0);
    table.read("highPassHz", settings.highPassHz, kMinHighPassHz);
    table.read("hallNoiseCounts", settings.hallNoiseCounts, 0);
    table.read("gyroLsbPerRadS", settings.gyroLsbPerRadS, kMinPositive);
    table.read("accLsbPerMS2", settings.accLsbPerMS2, kMinPositive);
    table.read("gyroNoiseRadS", settings.gyroNoiseRadS, 0);
    table.read("accNoiseMS2", settings.accNoiseMS2, 0);
    table.read("seed", settings.seed, 0, std::numeric_limits<int64_t>::max());
    const size_t axes = settings.gyroBiasRadS.size();
    if (const auto bias = table.numbers("gyroBiasRadS", -kUnbounded, kUnbounded, axes, axes)) {
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
    std::string text = nameOrFile + ": neither a file nor a module; there are";
    for (const ModuleDescription& module : shipped) {
        text += (&module == shipped.data() ? " " : ", ") + module.name;
    }
    throw std::runtime_error(text);
}

}  // namespace phone
