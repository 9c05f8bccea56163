#pragma once
// The phone's system properties.

#include <cstdint>

namespace NSCam::Utils {

class Properties {
  public:
    static int32_t property_get_int32(const char* key, int32_t defaultValue);
    static bool property_get_bool(const char* key, bool defaultValue);
    // `value` holds 256 bytes and receives a NUL-terminated text; returns its length.
    static int32_t property_get(const char* key, char* value, const char* defaultValue);
};

}  // namespace NSCam::Utils
