#pragma once
// From the words of the command line to an option's value.

#include <string>
#include <vector>

#include "cli/command.h"

namespace oisctl {

// Parses the words and stores what they say. Throws InputError, with the word and what would be right.
void storeValue(const Option& option, const std::vector<std::string>& words);

}  // namespace oisctl
