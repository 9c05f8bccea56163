// The platform's property accessors, answered from the current phone's properties; without a phone every
// property has its default.

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include "camera_platform/properties.h"
#include "phone.h"
#include "services/property_store.h"

namespace {

using phone::Faults;
using phone::Phone;
using Kind = phone::FaultEffect::Kind;

constexpr size_t kTextSize = phone::kPropertyValueMax + 1;

std::optional<Faults::Strike> consult(Phone& phone, const char* key) {
    phone.clock().enter();
    auto strike = phone.faults().strike(phone::FaultPoint::kProperty, key);
    if (strike && strike->effect.kind == Kind::kSlow) phone.clock().sleepUs(strike->effect.delayUs);
    return strike;
}

// A read that fails finds the property unset; a result stands for the value.
template <typename Value>
Value valueOf(const std::optional<Faults::Strike>& strike, Value stored, Value defaultValue) {
    if (strike && strike->effect.kind == Kind::kFail) return defaultValue;
    if (strike && strike->effect.kind == Kind::kResult) return static_cast<Value>(strike->effect.result);
    return stored;
}

void record(Phone& phone, const char* key, const char* type, int64_t defaultValue, int64_t value,
            const std::optional<Faults::Strike>& strike) {
    if (!phone.trace().enabled()) return;
    phone::Event event;
    event.kind = phone::EventKind::kProperty;
    event.name = key;
    event.fields.push_back({"type", std::string(type)});
    event.fields.push_back({"default", defaultValue});
    event.hasResult = true;
    event.result = value;
    if (strike) event.fault = strike->text;
    phone.trace().record(std::move(event));
}

void recordText(Phone& phone, const char* key, const char* defaultValue, const char* value,
                const std::optional<Faults::Strike>& strike) {
    if (!phone.trace().enabled()) return;
    phone::Event event;
    event.kind = phone::EventKind::kProperty;
    event.name = key;
    event.fields.push_back({"type", std::string("string")});
    event.fields.push_back({"default", std::string(defaultValue)});
    event.fields.push_back({"value", std::string(value)});
    if (strike) event.fault = strike->text;
    phone.trace().record(std::move(event));
}

}  // namespace

namespace NSCam::Utils {

int32_t Properties::property_get_int32(const char* key, int32_t defaultValue) {
    const Phone::Use phone;
    if (!phone) return defaultValue;
    const auto strike = consult(*phone, key);
    const int32_t value = valueOf(strike, phone->properties().getInt32(key, defaultValue), defaultValue);
    record(*phone, key, "int32", defaultValue, value, strike);
    return value;
}

bool Properties::property_get_bool(const char* key, bool defaultValue) {
    const Phone::Use phone;
    if (!phone) return defaultValue;
    const auto strike = consult(*phone, key);
    const bool value = valueOf(strike, phone->properties().getBool(key, defaultValue), defaultValue);
    record(*phone, key, "bool", defaultValue ? 1 : 0, value ? 1 : 0, strike);
    return value;
}

int32_t Properties::property_get(const char* key, char* value, const char* defaultValue) {
    const char* fallback = defaultValue == nullptr ? "" : defaultValue;
    const Phone::Use phone;
    if (!phone) {
        const size_t length = std::min(std::strlen(fallback), kTextSize - 1);
        std::memcpy(value, fallback, length);
        value[length] = '\0';
        return static_cast<int32_t>(length);
    }
    const auto strike = consult(*phone, key);
    const std::span<char> space(value, kTextSize);
    size_t length = 0;
    if (strike && strike->effect.kind == Kind::kFail) {
        length = phone->properties().getText("", space, fallback);  // a name that nothing has
    } else if (strike && strike->effect.kind == Kind::kResult) {
        length = phone->properties().getText("", space, std::to_string(strike->effect.result));
    } else {
        length = phone->properties().getText(key, space, fallback);
    }
    recordText(*phone, key, fallback, value, strike);
    return static_cast<int32_t>(length);
}

}  // namespace NSCam::Utils
