#pragma once
// Draws a status recording with gnuplot.

#include <filesystem>

#include "recording/recording.h"

namespace oisctl {

// Writes `out`, a .png or .svg by its extension: gyro, target and hall angle per axis with a close-up of the
// worst moment, residual, the lens's path, and the spectrum. An existing `out` is replaced only by a finished
// picture. Throws InputError for another extension, JobError when gnuplot is missing or fails or `out` cannot
// be written.
void plotRecording(const Recording& recording, const RecordingStats& stats, const std::filesystem::path& out);

}  // namespace oisctl
