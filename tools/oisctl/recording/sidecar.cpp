#include "recording/sidecar.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numbers>
#include <stdexcept>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/number.h"
#include "base/whole_file.h"
#include "recording/line_reader.h"

namespace oisctl {

namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

constexpr int kFormat = 1;  // raised when an earlier reader would misread it
constexpr int32_t kModeOff = 0;
constexpr double kDegPerRad = 180 / std::numbers::pi;
constexpr const char* kMotionHeader =
    "time_s x_deg y_deg  (the lens angle that would cancel the hand's turning since the first row)";

std::string aboutFile(const Recording& recording) {
    return recording.source + ".about.json";
}
std::string motionFile(const Recording& recording) {
    return recording.source + ".true-motion.txt";
}

void write(const std::string& file, std::string_view text) {
    WholeFile out(file);
    out.write(text);
    out.finish();
}

std::string trueMotion(const Recording& recording, const std::shared_ptr<const phone::MotionSource>& source) {
    std::string text = std::string(kMotionHeader) + "\n";
    phone::MotionCursor cursor;
    const double startS = recording.stretches.front().startS;
    auto step = static_cast<int64_t>(startS / phone::kMotionStepS);
    std::array<double, 2> angle{};
    for (const double timeS : recording.timeS) {
        const auto last = static_cast<int64_t>((startS + timeS) / phone::kMotionStepS + 1e-6);
        for (; step < last; ++step) {
            const phone::MotionSample& sample = cursor.at(source, step + 1);
            for (size_t axis = 0; axis < angle.size(); ++axis)
                angle[axis] -= sample.gyroRadS[axis] * kDegPerRad * phone::kMotionStepS;
        }
        fmt::format_to(std::back_inserter(text), "{:.6f} {:.6f} {:.6f}\n", timeS, angle[0], angle[1]);
    }
    return text;
}

template <typename Type>
Json orNull(const std::optional<Type>& value) {
    return value ? Json(*value) : Json();
}

Json modesJson(const Sidecar& sidecar) {
    Json modes = Json::array();
    for (const Sidecar::ModeChange& change : sidecar.modes)
        modes.push_back({{"time_s", change.timeS}, {"mode", change.mode}});
    return modes;
}

std::array<Samples, 2> readMotion(const Recording& recording, const std::string& file) {
    std::array<Samples, 2> motion;
    for (Samples& axis : motion) axis.reserve(recording.rows());
    LineReader lines(file, "reading");
    std::string_view line;
    while (lines.next(line)) {
        if (lines.number() == 1) continue;
        for (Samples& axis : motion) {
            line.remove_prefix(std::min(line.find(' '), line.size() - 1) + 1);
            const auto angle = numberOf<float>(line.substr(0, line.find(' ')));
            if (!angle) throw InputError(fmt::format("{}:{}: expected three numbers", file, lines.number()));
            axis.push_back(*angle);
        }
    }
    if (motion[0].size() != recording.rows()) {
        throw InputError(
            fmt::format("{}: {} rows, the recording has {}", file, motion[0].size(), recording.rows()));
    }
    return motion;
}

// Null: it is not known.
template <typename Type>
std::optional<Type> knownAt(const Json& json, const char* key) {
    const Json& value = json.at(key);
    return value.is_null() ? std::nullopt : std::optional(value.get<Type>());
}

// Earlier sidecars have none.
std::optional<double> scaleAt(const Json& json, const char* key) {
    return json.contains(key) ? knownAt<double>(json, key) : std::nullopt;
}

Sidecar sidecarOf(const Json& json) {
    Sidecar sidecar{.module = json.at("module").get<std::string>(),
                    .way = json.at("way").get<std::string>(),
                    .motion = knownAt<std::string>(json, "motion").value_or(""),
                    .seed = knownAt<uint64_t>(json, "seed").value_or(0),
                    .limitAngle = knownAt<double>(json, "limit_deg"),
                    .gyroCountsPerRadS = scaleAt(json, "gyro_counts_per_rad_s"),
                    .accCountsPerMS2 = scaleAt(json, "acc_counts_per_m_s2"),
                    .intervalMs = json.at("interval_ms").get<int32_t>(),
                    .firmwareVersion = knownAt<uint32_t>(json, "firmware_version")};
    for (const Json& change : json.at("modes"))
        sidecar.modes.push_back({change.at("time_s").get<double>(), change.at("mode").get<int32_t>()});
    for (const auto& [name, value] : json.at("properties").items())
        sidecar.properties.emplace_back(name, value.get<std::string>());
    return sidecar;
}

void readInto(FoundSidecar& found, const Recording& recording, const Json& json) {
    if (json.at("format") != kFormat)
        throw std::runtime_error(
            fmt::format("its format is {}, expected {}", json.at("format").dump(), kFormat));
    if (json.at("bytes") != recording.bytes || json.at("last_row") != recording.lastLine)
        throw std::runtime_error("it belongs to another recording");
    const Sidecar about = sidecarOf(json);
    Known known{.limitAngle = about.limitAngle};
    if (about.intervalMs > 0) known.intervalS = about.intervalMs * 1e-3;
    // A controller that took no mode does as it likes.
    known.lensHeld = !about.modes.empty() && std::ranges::all_of(about.modes, [](const auto& change) {
        return change.mode == kModeOff;
    });
    if (json.at("true_motion").is_string()) known.trueMotion = readMotion(recording, motionFile(recording));
    found.about = about;
    found.known = std::move(known);
}

}  // namespace

void writeSidecar(const Recording& recording, const Sidecar& sidecar,
                  const std::shared_ptr<const phone::MotionSource>& source) {
    const bool hasMotion = source != nullptr && recording.rows() > 0;
    if (hasMotion) write(motionFile(recording), trueMotion(recording, source));
    Json properties = Json::object();
    for (const auto& [name, value] : sidecar.properties) properties[name] = value;
    const Json json{
        {"format", kFormat},
        {"recording", fs::path(recording.source).filename().string()},
        {"bytes", recording.bytes},
        {"last_row", recording.lastLine},
        {"tool", "oisctl " OISCTL_VERSION},
        {"module", sidecar.module},
        {"way", sidecar.way},
        {"firmware_version", orNull(sidecar.firmwareVersion)},
        {"angle_unit", "deg"},
        {"limit_deg", orNull(sidecar.limitAngle)},
        {"limit_from", sidecar.limitAngle ? Json("module description") : Json()},
        {"gyro_counts_per_rad_s", orNull(sidecar.gyroCountsPerRadS)},
        {"acc_counts_per_m_s2", orNull(sidecar.accCountsPerMS2)},
        {"interval_ms", sidecar.intervalMs},
        {"modes", modesJson(sidecar)},
        {"properties", properties},
        {"motion", hasMotion ? Json(sidecar.motion) : Json()},
        {"seed", hasMotion ? Json(sidecar.seed) : Json()},
        {"true_motion", hasMotion ? Json(fs::path(motionFile(recording)).filename().string()) : Json()},
    };
    write(aboutFile(recording), json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

std::optional<FoundSidecar> findSidecar(const Recording& recording) {
    FoundSidecar found{aboutFile(recording), {}, {}, {}};
    std::error_code ignored;
    if (!fs::exists(found.file, ignored)) return std::nullopt;
    try {
        readInto(found, recording, Json::parse(phone::readFile(found.file)));
    } catch (const std::exception& error) {  // ours, and those of the JSON library
        found.whyNot = error.what();
    }
    return found;
}

}  // namespace oisctl
