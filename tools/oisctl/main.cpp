// oisctl: drives the OIS driver on a simulated phone, or on this machine's own kernel, and shows what passes.

#include <cstdio>
#include <exception>

#include "command_line.h"
#include "errors.h"

int main(int argc, char** argv) {
    try {
        return oisctl::runCommandLine(argc, argv);
    } catch (const oisctl::InputError& error) {
        std::fprintf(stderr, "oisctl: %s\n", error.what());
        return oisctl::kWrongInput;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "oisctl: %s\n", error.what());
        return oisctl::kJobFailed;
    }
}
