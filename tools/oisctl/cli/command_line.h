#pragma once
// From the command line to an exit status.

namespace oisctl {

// Parses, and runs what was asked for. Throws InputError, JobError, or what a library throws.
int runCommandLine(int argc, char** argv);

}  // namespace oisctl
