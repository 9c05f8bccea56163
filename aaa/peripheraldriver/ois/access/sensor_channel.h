#pragma once
// How the driver uses the phone's sensor service.

#include <cstdint>

namespace ois {

constexpr const char* kSensorServiceUser = "OisDrv";  // the name under which it asks for a provider
constexpr uint32_t kChannelSettleUs = 10000;          // after a provider was made or the channel enabled

}  // namespace ois
