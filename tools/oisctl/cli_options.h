#pragma once
// What the command line's library leaves to say about options.

#include <CLI/CLI.hpp>

namespace oisctl {

// A range that the option's own text tells, so that its type need not.
template <typename T>
CLI::Validator inRange(T least, T greatest) {
    return CLI::Range(least, greatest).description("");
}

}  // namespace oisctl
