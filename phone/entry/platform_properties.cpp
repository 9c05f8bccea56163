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
using phone::PropertyStore;

constexpr size_t kTextSize = phone::kPropertyValueMax + 1;

Fate consult(Phone& phone, const char* key) {
    phone.clock().enter();
    return phone.faults().consult(phone::FaultPoint::kProperty, key);
}

// A text has its value among the fields, a number as the result.
void record(Phone& phone, const char* key, std::vector<phone::Field> fields, std::optional<int64_t> value,
            const Fate& fate) {
    phone.trace().record({.kind = phone::EventKind::kProperty,
                          .name = key,
                          .fields = std::move(fields),
                          .result = value,
                          .fault = fate.fault()});
}

// What the platform's accessors of numbers have in common.
template <typename Value, typename Get>
Value numberProperty(const char* key, const char* type, Value defaultValue, Get get) {
    const PhoneInUse phone;
    if (!phone) return defaultValue;
    const Fate fate = consult(*phone, key);
    // A read that fails finds the property unset; a result stands for the value.
    const Value stored = (phone->properties().*get)(key, defaultValue);
    const Value value = fate.fails() ? defaultValue : static_cast<Value>(fate.result().value_or(stored));
    if (phone->trace().enabled()) {
        record(*phone, key, {{"type", std::string(type)}, {"default", int64_t{defaultValue}}}, int64_t{value},
               fate);
    }
    return value;
}

}  // namespace

namespace NSCam::Utils {

int32_t Properties::property_get_int32(const char* key, int32_t defaultValue) {
    return numberProperty(key, "int32", defaultValue, &PropertyStore::getInt32);
}

bool Properties::property_get_bool(const char* key, bool defaultValue) {
    return numberProperty(key, "bool", defaultValue, &PropertyStore::getBool);
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
    std::string standsFor = fate.result() ? std::to_string(*fate.result()) : fallback;
    if (fate.answered()) standsFor.assign(fate.bytes().begin(), fate.bytes().end());
    const size_t length = fate.fails() || fate.result() ? phone->properties().getText("", space, standsFor)
                                                        : phone->properties().getText(key, space, fallback);
    if (phone->trace().enabled()) {
        record(*phone, key,
               {{"type", std::string("string")},
                {"default", std::string(fallback)},
                {"value", std::string(value)}},
               std::nullopt, fate);
    }
    return static_cast<int32_t>(length);
}

}  // namespace NSCam::Utils
