#pragma once
// Register accesses of the Korva family, as the trace has them and as the tool makes them.

#include <cstdint>
#include <optional>

#include "trace/trace.h"
#include "wire/registers.h"

namespace oisctl {

class DriverSession;

struct RegisterAccess {
    uint32_t address = 0;
    bool writes = false;
    bool delivered = false;  // else the value says nothing
    int64_t value = 0;       // as the register's format has it; a float's is truncated
};

// Empty for any other event.
std::optional<RegisterAccess> registerAccess(const phone::Event& event);

// Through the driver's own transport and the hub. `bytes`: 1, 2 or 4. Empty when the read did not get
// through.
std::optional<uint32_t> readRegister(DriverSession& session, uint32_t address, uint32_t bytes);
void writeRegister(DriverSession& session, uint32_t address, uint32_t bytes, uint32_t value);

}  // namespace oisctl
