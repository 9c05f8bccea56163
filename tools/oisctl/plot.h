#pragma once
// Draws a status recording with gnuplot.

#include <filesystem>

#include "recording.h"

namespace oisctl {

// Writes `out`, a .png or .svg by its extension: gyro, target and hall angle per axis with a close-up,
// residual, the lens's path, and the spectrum. Throws std::runtime_error with one line when the extension is
// another, when gnuplot is missing or fails, or when `out` cannot be written; an existing `out` is then left
// as it was.
void plotRecording(const Recording& recording, const RecordingStats& stats, const std::filesystem::path& out);

}  // namespace oisctl
