#pragma once
// The module descriptions that are compiled in; the build writes the table from the files beside this header.

#include <span>

namespace phone {

struct ShippedModule {
    const char* file;  // its name without folder
    const char* text;
};

extern const std::span<const ShippedModule> kShippedModules;

}  // namespace phone
