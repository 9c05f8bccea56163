#pragma once
// Makes long series short enough to draw, without losing what one would see.

#include <string>
#include <vector>

#include "recording/recording_stats.h"

namespace oisctl {

// Appends lines "time value value ..." for a plot of that many columns of pixels: of each column the lowest
// and the highest value of each series, in the order in which they come. Segments are set apart by an empty
// line, so that gaps stay open.
void appendThinned(std::string& text, const std::vector<double>& timeS, const std::vector<RowRange>& segments,
                   RowRange rows, const std::vector<const Samples*>& series, size_t columns);

// Appends lines "x y" for a square plot from low to high on both axes: each part of the path that leads to a
// cell of the plot where it was not before. Parts that do not hang together are set apart by an empty line.
void appendThinnedPath(std::string& text, const Samples& x, const Samples& y,
                       const std::vector<RowRange>& segments, double low, double high, size_t cells);

}  // namespace oisctl
