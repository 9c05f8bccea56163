#pragma once
// The tool as a program that a test runs, in a folder of the test's own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;

// What would take each test file seconds to compile has its bodies apart.
extern template class nlohmann::basic_json<>;
namespace nlohmann {
void PrintTo(const json& value, std::ostream* out);
}
// Fails the test where a text is no JSON.
json parsed(const std::string& text);
std::string asText(const json& value);
std::string replaced(const std::string& text, const std::string& pattern, const std::string& by);

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const fs::path& file);
size_t lines(const std::string& text);

// In a folder of the test's own.
class Oisctl : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    Outcome run(const std::string& arguments, const std::string& before = {}) const;
    json runJson(const std::string& arguments) const;
    // Events of a whole trace, as the tool writes them.
    std::vector<json> trace(const std::string& arguments, const std::string& before = {}) const;
    // To be put before a command: ends it by a signal when its trace shows this.
    static std::string interruptedAt(const std::string& seen);
    // A sub-device module whose lens no machine has, for --kernel real.
    std::string moduleOfNoDevice() const;
    void write(const std::string& name, const std::string& text) const;

    const fs::path mFolder = fs::path(testing::TempDir()) / ("oisctl_test_" + std::to_string(getpid()));
};
