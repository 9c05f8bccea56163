#include "base/junit.h"

#include <fmt/format.h>
#include <utf8/checked.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "base/errors.h"

namespace oisctl {

namespace {

using Outcome = JunitCase::Outcome;

// In an attribute's value; a line break has to be written as a reference there.
std::string escaped(std::string_view text) {
    std::string valid;
    utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), '?');
    std::string result;
    for (const char c : valid) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\n':
                result += "&#10;";
                break;
            default:
                result += static_cast<unsigned char>(c) < ' ' ? '?' : c;
        }
    }
    return result;
}

std::string caseText(const JunitCase& test) {
    const std::string head =
        fmt::format("    <testcase classname=\"{}\" name=\"{}\"", escaped(test.group), escaped(test.name));
    if (test.outcome == Outcome::kPassed) return head + "/>\n";
    const char* const element = test.outcome == Outcome::kFailed ? "failure" : "skipped";
    return fmt::format("{}>\n      <{} message=\"{}\"/>\n    </testcase>\n", head, element,
                       escaped(test.message));
}

}  // namespace

std::string junitText(std::string_view suite, const std::vector<JunitCase>& cases) {
    std::string text = fmt::format(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n"
        "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" errors=\"0\" skipped=\"{}\">\n",
        escaped(suite), cases.size(), std::ranges::count(cases, Outcome::kFailed, &JunitCase::outcome),
        std::ranges::count(cases, Outcome::kSkipped, &JunitCase::outcome));
    for (const JunitCase& test : cases) text += caseText(test);
    return text + "  </testsuite>\n</testsuites>\n";
}

JunitFile::JunitFile(std::string name) : mName(std::move(name)) {
    if (mName.empty()) return;
    mFile.open(mName);
    if (!mFile) throw InputError("--junit " + mName + ": cannot be written: " + std::strerror(errno));
}

void JunitFile::write(std::string_view suite, const std::vector<JunitCase>& cases) {
    if (mName.empty()) return;
    mFile << junitText(suite, cases);
    mFile.close();
    if (!mFile) throw JobError("--junit " + mName + ": could not be written completely");
}

}  // namespace oisctl
