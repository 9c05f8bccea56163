#pragma once

namespace oisctl {

constexpr double kMicrosPerSecond = 1e6;
constexpr double kSecondsPerUs = 1e-6;

}  // namespace oisctl
