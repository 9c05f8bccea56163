#include "report/page.h"

#include <array>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "base/file_content.h"

namespace oisctl {

namespace fs = std::filesystem;

namespace {

// Wherever a text comes from: nothing in it can end the element that it stands in.
std::string asScriptData(const nlohmann::ordered_json& data) {
    const std::string text = data.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
    std::string escaped;
    escaped.reserve(text.size());
    for (const char letter : text) {
        if (letter == '<') {
            escaped += "\\u003c";
        } else {
            escaped += letter;
        }
    }
    return escaped;
}

// A library's own text, in which "</script" can only stand in a string.
std::string asScript(std::string text) {
    constexpr std::string_view kEnd = "</script";
    for (size_t at = text.find(kEnd); at != std::string::npos; at = text.find(kEnd, at + 2))
        text.insert(at + 1, "\\");
    return text;
}

}  // namespace

std::optional<ChartLibrary> findChartLibrary(const fs::path& folder) {
    const fs::path script = folder / "dygraph.min.js";
    const fs::path style = folder / "dygraph.min.css";
    std::error_code ignored;
    if (!fs::exists(script, ignored) || !fs::exists(style, ignored)) return std::nullopt;
    return ChartLibrary{asScript(phone::readTextFile(script)), phone::readTextFile(style)};
}

std::string reportPage(const ReportSources& sources, const std::optional<ChartLibrary>& library) {
    const PageParts parts = pageParts();
    const std::string data = asScriptData(pageData(sources));
    const std::array<std::pair<std::string_view, std::string_view>, 5> pieces{{
        {"@LIBRARY-STYLE@", library ? library->style : std::string_view()},
        {"@STYLE@", parts.style},
        {"@DATA@", data},
        {"@LIBRARY@", library ? library->script : std::string_view()},
        {"@SCRIPT@", parts.script},
    }};
    std::string page;
    std::string_view rest = parts.frame;
    for (const auto& [place, piece] : pieces) {
        const size_t at = rest.find(place);
        page.append(rest.substr(0, at)).append(piece);
        rest.remove_prefix(at + place.size());
    }
    return page.append(rest);
}

}  // namespace oisctl
