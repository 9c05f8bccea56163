#pragma once
// How a command of the tool ends: with one of these codes, or with 128 and the signal that ended it early
// (main.cpp).

#include <stdexcept>
#include <string>

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

}  // namespace oisctl
