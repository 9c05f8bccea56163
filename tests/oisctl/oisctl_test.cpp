// The tool as its user has it: commands with good and bad input, their exit status, and what they say.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

size_t lines(const std::string& text) {
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
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(mFolder / name) << text;
    }

    const fs::path mFolder = fs::path(testing::TempDir()) / ("oisctl_test_" + std::to_string(getpid()));
};

TEST_F(Oisctl, WrongInputIsOneLineThatSaysWhatWouldBeRight) {
    write("bad_scenario.toml", "duration_s = 1\n[[span]]\nzoom_ration = 2\n");
    write("bad_module.toml", "name = \"mine\"\n");
    write("bad_properties", "vendor.debug.ois.dump=none\n");
    struct Case {
        const char* arguments;
        const char* says;
    };
    const std::vector<Case> cases{
        {"sesion", "did you mean 'session'"},
        {"session --modul dw9786", "did you mean '--module'"},
        {"session --module bad_module.toml", "bad_module.toml"},
        {"session --sensor 8", "--sensor"},
        {"session --set dunp=1", "vendor.debug.ois.dump"},
        {"session --set dump=all", "integer"},
        {"session -m dw9786 --set dump=1", "oisctl record"},
        {"session --properties bad_properties", "bad_properties:1"},
        {"session --fault SET_MODD:lost", "SET_MODE"},
        {"session -m dw9786 --fault chip.never-idle", "hub"},
        {"session --scenario vidoe-zoom", "did you mean 'video-zoom'"},
        {"session --scenario bad_scenario.toml", "bad_scenario.toml:3:"},
        {"session --scenario .", "folder"},
        {"session --scenario video-zoom --hold 2", "excludes --hold"},
        {"session --modes ''", "no number"},
        {"session --properties /dev/zero", "too large"},
        {"session --module .", "folder"},
        {"session --dump-folder .", "--kernel real"},
        {"op read-gain-z", "did you mean 'read-gain-x'"},
        {"op off 3", "takes no value"},
        {"op write-gain-x 0.0001", "0.0003"},
        {"mode two", "mode"},
        {"dump flash -m korvas4sw-hub", "sub-device"},
        {"registers --write STABILIZATION_MODE=1", "STABILISATION_MODE"},
        {"registers --write STABILISATION_MODE=on", "no number"},
        {"registers --write 0x0002junk=16", "no such register"},
        {"detect-defect --defect stuk-x", "did you mean 'lens.stuck-x'?"},
        {"firmware-update --from new", "0x"},
        {"plot bad_scenario.toml", "bad_scenario.toml"},
        {"scenarios bad_scenario.toml", "did you mean 'zoom_ratio'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome result = run(c.arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(lines(result.err), 1U) << result.err;
        EXPECT_EQ(result.err.substr(0, 8), "oisctl: ") << result.err;
        EXPECT_NE(result.err.find(c.says), std::string::npos) << result.err;
    }
}

TEST_F(Oisctl, HelpOfEveryCommandTeachesByExample) {
    const Outcome overview = run("--help");
    EXPECT_EQ(overview.status, 0);
    const std::tuple<const char*, const char*, int> cases[] = {
        {"session --hold 60", "INT", 130},    {"session --hold 60", "TERM", 143},
        {"session --hold 60", "HUP", 129},    {"record --seconds 60", "INT", 130},
        {"samples --seconds 60", "INT", 130}, {"registers --watch", "TERM", 143},
        {"detect-defect", "INT", 130}};
    for (const auto& [command, signal, status] : cases) {
        SCOPED_TRACE(std::string(command) + ' ' + signal);
        const Outcome result =
            run(std::string(command) + " --real-time",
                std::string("TMPDIR=$PWD timeout --foreground --preserve-status -s ") + signal + " 0.4");
        EXPECT_EQ(result.status, status) << result.err;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(mFolder))
        EXPECT_FALSE(entry.is_directory() && entry.path().filename() != "out") << entry.path() << " is left";
}

TEST_F(Oisctl, RegistersByName) {
    const Outcome table = run("registers --write STABILISATION_MODE=16 --json");
    const json registers = json::parse(table.out)["registers"];
    const auto mode = std::find_if(registers.begin(), registers.end(),
                                   [](const json& entry) { return entry["name"] == "STABILISATION_MODE"; });
    ASSERT_NE(mode, registers.end());
    EXPECT_EQ((*mode)["value"], 16);
}

}  // namespace
