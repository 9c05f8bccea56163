#pragma once
// What is installed beside the tool and says what the tool itself says: manual and completions.

#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

// "man", "bash", "zsh", "fish".
std::vector<std::string> documentKinds();
// Throws InputError for another kind.
std::string generateDocument(std::string_view kind);

std::string manual();
std::string bashCompletion();
std::string zshCompletion();
std::string fishCompletion();

}  // namespace oisctl
