// The platform's property accessors, answered from the current phone's properties; without a phone every
// property has its default.

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include "camera_platform/properties.h"
#include "phone.h"
#include "property_store.h"

namespace {

using phone::Phone;

constexpr size_t kTextSize = phone::kPropertyValueMax + 1;

void record(Phone& phone, const char* key, const char* type, int64_t defaultValue, int64_t value) {
    if (!phone.trace().enabled()) return;
    phone::Event event;
    event.kind = phone::EventKind::kProperty;
    event.name = key;
    event.fields.push_back({"type", std::string(type)});
    event.fields.push_back({"default", defaultValue});
    event.hasResult = true;
    event.result = value;
    phone.trace().record(std::move(event));
}

void recordText(Phone& phone, const char* key, const char* defaultValue, const char* value) {
    if (!phone.trace().enabled()) return;
    phone::Event event;
    event.kind = phone::EventKind::kProperty;
    event.name = key;
    event.fields.push_back({"type", std::string("string")});
    event.fields.push_back({"default", std::string(defaultValue)});
    event.fields.push_back({"value", std::string(value)});
    phone.trace().record(std::move(event));
}

}  // namespace

namespace NSCam::Utils {

int32_t Properties::property_get_int32(const char* key, int32_t defaultValue) {
    Phone* phone = Phone::current();
    if (phone == nullptr) return defaultValue;
    phone->clock().enter();
    const int32_t value = phone->properties().getInt32(key, defaultValue);
    record(*phone, key, "int32", defaultValue, value);
    return value;
}

bool Properties::property_get_bool(const char* key, bool defaultValue) {
    Phone* phone = Phone::current();
    if (phone == nullptr) return defaultValue;
    phone->clock().enter();
    const bool value = phone->properties().getBool(key, defaultValue);
    record(*phone, key, "bool", defaultValue ? 1 : 0, value ? 1 : 0);
    return value;
}

int32_t Properties::property_get(const char* key, char* value, const char* defaultValue) {
    const char* fallback = defaultValue == nullptr ? "" : defaultValue;
    Phone* phone = Phone::current();
    if (phone == nullptr) {
        const size_t length = std::min(std::strlen(fallback), kTextSize - 1);
        std::memcpy(value, fallback, length);
        value[length] = '\0';
        return static_cast<int32_t>(length);
    }
    phone->clock().enter();
    const size_t length = phone->properties().getText(key, std::span(value, kTextSize), fallback);
    recordText(*phone, key, fallback, value);
    return static_cast<int32_t>(length);
}

}  // namespace NSCam::Utils
