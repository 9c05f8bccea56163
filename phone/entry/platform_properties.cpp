// The platform's property accessors, answered from the current phone's properties; without a phone every
// property has its default.

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

#include "camera_platform/properties.h"
#include "entry/phone_in_use.h"
#include "services/property_store.h"

namespace {

using phone::Fate;
using phone::Phone;
using phone::PhoneInUse;

constexpr size_t kTextSize = phone::kPropertyValueMax + 1;

Fate consult(Phone& phone, const char* key) {
    phone.clock().enter();
    return phone.faults().consult(phone::FaultPoint::kProperty, key);
}

// A read that fails finds the property unset; a result stands for the value.
template <typename Value>
Value valueOf(const Fate& fate, Value stored, Value defaultValue) {
    return fate.fails() ? defaultValue : static_cast<Value>(fate.result().value_or(stored));
}

void record(Phone& phone, const char* key, const char* type, int64_t defaultValue, int64_t value,
            const Fate& fate) {
    if (!phone.trace().enabled()) return;
    phone.trace().record({.kind = phone::EventKind::kProperty,
                          .name = key,
                          .fields = {{"type", std::string(type)}, {"default", defaultValue}},
                          .result = value,
                          .fault = fate.fault()});
}

void recordText(Phone& phone, const char* key, const char* defaultValue, const char* value,
                const Fate& fate) {
    if (!phone.trace().enabled()) return;
    phone.trace().record({.kind = phone::EventKind::kProperty,
                          .name = key,
                          .fields = {{"type", std::string("string")},
                                     {"default", std::string(defaultValue)},
                                     {"value", std::string(value)}},
                          .fault = fate.fault()});
}

}  // namespace

namespace NSCam::Utils {

int32_t Properties::property_get_int32(const char* key, int32_t defaultValue) {
    const PhoneInUse phone;
    if (!phone) return defaultValue;
    const Fate fate = consult(*phone, key);
    const int32_t value = valueOf(fate, phone->properties().getInt32(key, defaultValue), defaultValue);
    record(*phone, key, "int32", defaultValue, value, fate);
    return value;
}

bool Properties::property_get_bool(const char* key, bool defaultValue) {
    const PhoneInUse phone;
    if (!phone) return defaultValue;
    const Fate fate = consult(*phone, key);
    const bool value = valueOf(fate, phone->properties().getBool(key, defaultValue), defaultValue);
    record(*phone, key, "bool", defaultValue ? 1 : 0, value ? 1 : 0, fate);
    return value;
}

int32_t Properties::property_get(const char* key, char* value, const char* defaultValue) {
    const char* fallback = defaultValue == nullptr ? "" : defaultValue;
    const PhoneInUse phone;
    if (!phone) {
        const size_t length = std::min(std::strlen(fallback), kTextSize - 1);
        std::memcpy(value, fallback, length);
        value[length] = '\0';
        return static_cast<int32_t>(length);
    }
    const Fate fate = consult(*phone, key);
    const std::span<char> space(value, kTextSize);
    // "" is a name that nothing has.
    const std::string standsFor = fate.result() ? std::to_string(*fate.result()) : fallback;
    const size_t length = fate.fails() || fate.result() ? phone->properties().getText("", space, standsFor)
                                                        : phone->properties().getText(key, space, fallback);
    recordText(*phone, key, fallback, value, fate);
    return static_cast<int32_t>(length);
}

}  // namespace NSCam::Utils
