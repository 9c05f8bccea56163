#pragma once
// Draws status recordings with gnuplot.

#include <filesystem>

#include "recording/stats_report.h"

namespace oisctl {

// Writes `out`, a .png or .svg by its extension: gyro, target and hall angle per axis with a close-up of the
// worst moment, tracking error, the lens's path, and the spectrum; residual shake where the true motion is
// known. An existing `out` is replaced only by a finished picture. Throws InputError for another extension,
// JobError when gnuplot is missing or fails or `out` cannot be written.
void plotRecording(const Examined& examined, const std::filesystem::path& out);

// The same of two recordings over each other, each from its first row on: where the lens was, and what it
// left.
void plotBoth(const Examined& a, const Examined& b, const std::filesystem::path& out);

}  // namespace oisctl
