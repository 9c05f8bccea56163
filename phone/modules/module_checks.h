#pragma once
// What a description may say and nobody would want: values that the driver refuses or that make no sense.

#include <string>
#include <vector>

namespace phone {

struct ModuleDescription;

// One line each: the field, what it holds, and what follows from it. Empty when all is well.
std::vector<std::string> doubtsAbout(const ModuleDescription& module);

}  // namespace phone
