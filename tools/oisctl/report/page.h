#pragma once
// A report as one page of HTML that needs nothing beside it.

#include <filesystem>
#include <string>

#include "report/page_data.h"

namespace oisctl {

// Where Debian's package has the chart library.
constexpr const char* kChartFolder = "/usr/share/javascript/dygraphs";

// The files of report/page/, compiled in.
struct PageParts {
    std::string_view frame;  // with a line "@NAME@" for each of the others, for the data and for the library
    std::string_view style;
    std::string_view script;
};
PageParts pageParts();

// The library that draws the charts, to be put into the page.
struct ChartLibrary {
    std::string script;
    std::string style;
};
// Empty where the folder has none.
std::optional<ChartLibrary> findChartLibrary(const std::filesystem::path& folder);

// Without the library the page shows all but the charts, and says so.
std::string reportPage(const ReportSources& sources, const std::optional<ChartLibrary>& library);

}  // namespace oisctl
