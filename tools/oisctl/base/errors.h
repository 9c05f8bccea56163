#pragma once
// How a command of the tool ends: with one of these codes, or with 128 and the signal that ended it early
// (main.cpp).

#include <fmt/core.h>

#include <stdexcept>
#include <string_view>

namespace oisctl {

enum ExitCode : int {
    kSuccess = 0,
    kJobFailed = 1,   // it ran, and something in it failed
    kWrongInput = 2,  // it did not run: an argument, a value or a file cannot be used
};

// An argument, a value or a file cannot be used. The text is one line: what, where, and what would be right.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The job could not be carried through. The text is one line.
class JobError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What `work` gives. What it throws is wrong input; `prefix` says whose, as in "--module: ".
template <typename Work>
auto asInput(std::string_view prefix, const Work& work) {
    try {
        return work();
    } catch (const std::runtime_error& error) {
        throw InputError(fmt::format("{}{}", prefix, error.what()));
    }
}

}  // namespace oisctl
