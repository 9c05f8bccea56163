#pragma once
// The tool as a program that a test runs, in a folder of the test's own.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using nlohmann::json;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

inline std::string readFile(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

inline size_t lines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// In a folder of the test's own.
class Oisctl : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(mFolder); }
    void TearDown() override { fs::remove_all(mFolder); }

    Outcome run(const std::string& arguments, const std::string& before = {}) const {
        const fs::path err = mFolder / "stderr";
        const std::string command = "cd " + mFolder.string() + " && " + before + " " OISCTL_COMMAND " " +
                                    arguments + " 2>" + err.string();
        Outcome result;
        std::FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) return result;
        std::array<char, 4096> buffer{};
        while (const size_t length = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
            result.out.append(buffer.data(), length);
        }
        const int status = pclose(pipe);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.err = readFile(err);
        // Whatever status the test expects: a sanitizer's is no answer of the tool.
        EXPECT_EQ(result.err.find("Sanitizer"), std::string::npos) << arguments << '\n' << result.err;
        return result;
    }
    json runJson(const std::string& arguments) const {
        const Outcome result = run(arguments + " --json");
        EXPECT_EQ(result.status, 0) << result.out << result.err;
        return json::parse(result.out.substr(result.out.rfind("\n{") + 1), nullptr, false);
    }
    // Events of a whole trace, as the tool writes them.
    std::vector<json> trace(const std::string& arguments, const std::string& before = {}) const {
        run(arguments + " --trace=trace.jsonl --json", before);
        std::ifstream file(mFolder / "trace.jsonl");
        std::vector<json> events;
        for (std::string line; std::getline(file, line);) events.push_back(json::parse(line));
        return events;
    }
    // To be put before a command: ends it by a signal when its trace shows this.
    static std::string interruptedAt(const std::string& seen) {
        return R"(sh -c 'seen=$1; shift; "$@" & )"
               R"(until grep -qs "$seen" trace.jsonl || ! kill -0 $! 2>/dev/null; do sleep 0.02; done; )"
               R"(kill -TERM $! && wait $!' sh )" +
               seen;
    }
    // A sub-device module whose lens no machine has, for --kernel real.
    std::string moduleOfNoDevice() const {
        return std::regex_replace(run("modules dw9786 --toml").out, std::regex("driverName = .*"),
                                  "driverName = \"no_such_lens\"");
    }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(mFolder / name) << text;
    }

    const fs::path mFolder = fs::path(testing::TempDir()) / ("oisctl_test_" + std::to_string(getpid()));
};
