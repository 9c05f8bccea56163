#pragma once
// What the command line's library leaves to say about options.

#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

namespace oisctl {

// A range that the option's own text tells, so that its type need not. Unlike the library's, it has no place
// for "nan".
template <typename T>
CLI::Validator inRange(T least, T greatest) {
    const auto check = [least, greatest](const std::string& text) {
        std::istringstream in(text);
        T value{};
        const bool isNumber = in >> value && in.eof();
        std::ostringstream complaint;
        if (!isNumber) {
            complaint << "'" << text << "' is no number";
        } else if (value < least || value > greatest) {
            complaint << text << " is not in the range " << least << " to " << greatest;
        }
        return complaint.str();
    };
    return {check, ""};
}

}  // namespace oisctl
