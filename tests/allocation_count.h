#pragma once
// How often the program has allocated memory with operator new.

#include <cstdint>

uint64_t allocationCount();
