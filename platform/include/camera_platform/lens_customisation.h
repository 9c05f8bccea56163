#pragma once
// The camera's lens customisation library.

#include <cstdint>

// Tells which OIS driver serves a camera module and fills its customisation blocks.
//   sensorDev, sensorId, moduleId   the camera sensor's device index, and the ids of sensor and module
//   status                          one word of the library's own
//   driverName                      32 bytes: at most 31 characters and a NUL
//   custInfo                        1704 bytes
//   custExt                         160 bytes
// Nonzero when the module has OIS.
extern "C" int32_t GetOisDriverName(int32_t sensorDev, int32_t sensorId, int32_t moduleId, int32_t* status,
                                    char* driverName, void* custInfo, void* custExt);
