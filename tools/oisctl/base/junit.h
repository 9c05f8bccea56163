#pragma once
// Results as JUnit XML, which build servers show.

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace oisctl {

struct JunitCase {
    enum class Outcome { kPassed, kFailed, kSkipped };

    std::string group;
    std::string name;
    Outcome outcome = Outcome::kPassed;
    std::string message{};  // why, unless it passed
};

// "<testsuites>...": a text of bytes that are no UTF-8, or that XML cannot hold, has '?' in their place.
std::string junitText(std::string_view suite, const std::vector<JunitCase>& cases);

// The file is opened before the work whose results it will hold, so that a name that cannot be written is
// known before.
class JunitFile {
  public:
    // An empty name: there is no file. Throws InputError.
    explicit JunitFile(std::string name);
    // Throws JobError.
    void write(std::string_view suite, const std::vector<JunitCase>& cases);

  private:
    std::string mName;
    std::ofstream mFile;
};

}  // namespace oisctl
