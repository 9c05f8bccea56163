#pragma once
// Traces that were written to files, one event a line.

#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "trace/trace.h"

namespace oisctl {

struct TracedEvent {
    size_t line = 0;  // in its file, from 1
    phone::Event event;
};

struct TraceFile {
    std::filesystem::path path;
    std::vector<phone::Field> about;  // what its first line says; empty without one
    std::vector<TracedEvent> events;  // in order
    bool cut = false;                 // more happened than could be written
};

// Numbers the threads anew: 0 is the one that calls the driver, or else the first; the others follow in the
// order in which they appear. So threads of two traces that do the same have the same numbers.
void numberThreads(TraceFile& trace);

// What the capture library of a process that ended before its time left beside its trace: the lines that were
// still to be written. Empty when there is none.
std::string pendingLines(const std::filesystem::path& path);
// Puts them where they belong. Not while the process may still write.
void appendPendingLines(const std::filesystem::path& path);

// With what stands beside it.
void removeTrace(const std::filesystem::path& path, std::error_code& error);
// Whether the capture library could not write all of it, for a full disk, say.
bool endsEarly(const std::filesystem::path& path);

// A trace in JSON lines, with what is pending, its threads numbered so; the report that a command prints
// behind its trace is left out. Throws InputError that names file, line and what is wrong there.
TraceFile loadTrace(const std::filesystem::path& path);

}  // namespace oisctl
