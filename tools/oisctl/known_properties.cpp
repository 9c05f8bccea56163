#include "known_properties.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <stdexcept>

#include "errors.h"
#include "suggest.h"

namespace oisctl {

namespace {

constexpr std::string_view kPrefix = "vendor.debug.ois.";

bool isInt32(std::string_view text) {
    int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool isBool(std::string_view text) {
    constexpr std::string_view kWords[] = {"0", "1", "true", "false", "y", "n", "yes", "no", "on", "off"};
    return std::find(std::begin(kWords), std::end(kWords), text) != std::end(kWords);
}

}  // namespace

const std::vector<KnownProperty>& knownProperties() {
    using enum PropertyType;
    static const std::vector<KnownProperty> properties{
        {"vendor.debug.ois.mode", kBool, "0", "open", "manual control: every request runs mode 0"},
        {"vendor.debug.ois.dump", kInt, "0", "open", "what to dump, a mask: 1 status, 2 OTP, 4 flash"},
        {"vendor.debug.ois.dump.interval.time", kInt, "4", "open",
         "ms between two rows of the status recorder"},
        {"vendor.debug.ois.dump.level", kInt, "15", "open", "sent with each status request of the recorder"},
        {"vendor.debug.ois.actuator.dectect", kBool, "0", "open", "logged only"},
        {"vendor.debug.ois.status.check", kBool, "0", "open",
         "check the controller's status with every request"},
        {"vendor.debug.ois.actois", kBool, "0", "open", "angle-based active OIS in every dynamic mode"},
        {"vendor.debug.ois.fixmode", kBool, "0", "open", "hold the lens at a target instead of stabilising"},
        {"vendor.debug.ois.disable", kInt, "(as found)", "open", "0 switches OIS off for the session"},
        {"vendor.debug.ois.bypassen", kInt, "1", "open",
         "hub way: 1 relays every command, 0 goes through the family parser"},
        {"vendor.debug.ois.loglevel", kInt, "0", "open", "log level of the sensor hub"},
        {"vendor.debug.ois.gethall", kBool, "0", "request, fix mode", "read the hall position back"},
        {"vendor.debug.ois.dynamic", kInt, "(as it is)", "request",
         "dynamic mode: 0 off, 2 with angle, 3 zoom-triggered"},
        {"vendor.debug.ois.tarx", kInt, "0", "request, fix target", "fix target x, controller units"},
        {"vendor.debug.ois.tary", kInt, "0", "request, fix target", "fix target y, controller units"},
        {"vendor.debug.ois.targetx", kInt, "2000 or 0", "request, fix mode",
         "manual target x; the default is the chip's"},
        {"vendor.debug.ois.targety", kInt, "2000 or 0", "request, fix mode",
         "manual target y; the default is the chip's"},
        {"vendor.debug.ois.sineEn", kInt, "3", "modes 5 and 7", "sine test: axes"},
        {"vendor.debug.ois.sineFre", kInt, "1", "modes 5 and 7", "sine test: frequency"},
        {"vendor.debug.ois.sineAmpX", kInt, "100", "modes 5 and 7", "sine test: amplitude x"},
        {"vendor.debug.ois.sineAmpY", kInt, "100", "modes 5 and 7", "sine test: amplitude y"},
        {"ro.product.country.region", kText, "N", "close, hub way",
         "region code, which decides about the telemetry report"},
    };
    return properties;
}

std::string checkedProperty(std::string_view key, std::string_view value) {
    const std::string whole = key.find('.') == std::string_view::npos || key.starts_with("dump.") ||
                                      key.starts_with("actuator.") || key.starts_with("status.")
                                  ? std::string(kPrefix).append(key)
                                  : std::string(key);
    const auto& known = knownProperties();
    const auto found =
        std::find_if(known.begin(), known.end(), [&](const auto& p) { return p.key == whole; });
    if (found == known.end()) {
        std::vector<std::string> keys;
        for (const KnownProperty& property : known) keys.emplace_back(property.key);
        const std::string near = nearest(whole, keys);
        throw std::invalid_argument(
            "the driver reads no property '" + whole + "'" +
            (near.empty() ? "; 'oisctl properties' lists them" : "; did you mean '" + near + "'?"));
    }
    if (found->type == PropertyType::kInt && !isInt32(value)) {
        throw std::invalid_argument(whole + " takes a whole number from -2147483648 to 2147483647, not '" +
                                    std::string(value) + "'");
    }
    if (found->type == PropertyType::kBool && !isBool(value)) {
        throw std::invalid_argument(whole + " takes 0 or 1, not '" + std::string(value) + "'");
    }
    return whole;
}

Assignment parseAssignment(std::string_view text) {
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
        throw InputError("--set " + std::string(text) +
                         ": write property=value, as in --set vendor.debug.ois.bypassen=0");
    }
    const std::string_view value = text.substr(equals + 1);
    try {
        return {checkedProperty(text.substr(0, equals), value), std::string(value)};
    } catch (const std::invalid_argument& error) {
        throw InputError("--set " + std::string(text) + ": " + error.what());
    }
}

}  // namespace oisctl
