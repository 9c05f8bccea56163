#pragma once
// A program that runs with the capture library in front of it, and the traces that it left.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace oisctl {

// The capture library, where the tool's libraries are. Throws JobError when it is not there.
std::filesystem::path spyLibrary();

struct SpiedRun {
    int exitStatus = 0;          // as shells tell it: 128 and the signal of one that a signal ended
    bool othersRunning = false;  // processes that it started and left behind: they go on writing
};

// Runs a program on this process's own input and output until it ends; its processes write traces to `trace`
// and beside it. Signals that are meant for a job reach the program. Throws InputError when it cannot be run.
SpiedRun runSpied(const std::vector<std::string>& program, const std::filesystem::path& trace);

// The trace of a program's first process that recorded something, and those of its others: all of one
// program's once it was run, whole unless one still writes.
std::vector<std::filesystem::path> spiedTraces(const std::filesystem::path& trace);

}  // namespace oisctl
