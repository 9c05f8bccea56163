#pragma once
// What is installed beside the tool and says what the tool itself says: manual and completions.

#include <string>

namespace oisctl {

// "man", "bash", "zsh", "fish". Throws InputError for another kind.
std::string generateDocument(const std::string& kind);

std::string manual();

}  // namespace oisctl
