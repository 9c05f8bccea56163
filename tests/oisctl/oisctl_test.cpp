// The tool as its user has it: commands with good and bad input, their exit status, and what they say.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "faults/faults.h"
#include "oisctl_fixture.h"

namespace {

TEST_F(Oisctl, WrongInputIsOneLineThatSaysWhatWouldBeRight) {
    write("bad_scenario.toml", "duration_s = 1\n[[span]]\nzoom_ration = 2\n");
    write("bad_module.toml", "name = \"mine\"\n");
    write("bad_properties", "vendor.debug.ois.dump=none\n");
    write("trace.jsonl", "\n {}\n");
    write("status.txt", "chose sys_timestamp\n");
    write("twice.jsonl",
          "{\"kind\":\"trace\",\"format\":1,\"kernel\":\"real\"}\n{\"kind\":\"trace\",\"format\":1}\n");
    write("old.jsonl", "{\"kind\":\"trace\",\"format\":0}\n");
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
        {"session --kernel real -m dw9786 --motion walk", "simulated lens"},
        {"session --kernel real -m dw9786 --seed 1", "simulated lens"},
        {"session --kernel real -m dw9786 --fault lens.stuck", "simulated lens"},
        {"detect-defect --kernel real -m dw9786 --defect stuck", "simulated lens"},
        {"calibrate --kernel real -m dw9786 --allow-write --fault chip.never-idle", "hub"},
        {"session --kernel real -m korvas4sw-hub --folder .", "--dump-folder"},
        {"session --kernel real -m dw9786 --media-graph graph.toml", "simulated kernel"},
        {"op read-gain-z", "did you mean 'read-gain-x'"},
        {"op off 3", "takes no value"},
        {"op write-gain-x 0.0001", "0.0003"},
        {"mode two", "mode"},
        {"dump flash -m korvas4sw-hub", "sub-device"},
        {"registers --write STABILIZATION_MODE=1", "STABILISATION_MODE"},
        {"registers --write STABILISATION_MODE=on", "no number"},
        {"registers --write 0x0002junk=16", "no such register"},
        {"detect-defect --defect stuk-x", "did you mean 'stuck-x'?"},
        {"firmware-update --from new", "0x"},
        {"plot bad_scenario.toml", "bad_scenario.toml"},
        {"compare trace.jsonl status.txt", "trace.jsonl is a trace and status.txt a recording"},
        {"compare status.txt bad_module.toml", "bad_module.toml: neither a trace"},
        {"compare trace.jsonl trace.jsonl --plot both.png", "--plot"},
        {"compare status.txt status.txt --aside message", "--aside"},
        {"compare . status.txt", ".: cannot be read: Is a directory"},
        {"replay status.txt", "status.txt: is a status recording"},
        {"timeline twice.jsonl", "twice.jsonl:2: another trace begins here"},
        {"report old.jsonl -o old.html", "old.jsonl:1: is a trace of format 0"},
        {"compliance -m korvas4sw-hub", "these are: korvas4sw-subdev"},
        {"compliance --node /dev/v4l-subdev10", "goes with --kernel real"},
        {"probe --fault lens.stuck-x", "simulated lens"},
        {"session --kernel real -m dw9786 --fault request.GET_HALL:moves=+8", "the simulated kernel copies"},
        {"session --kernel real -m dw9786 --fault hub:errno=EIO", "strikes at the sensor hub"},
        {"compliance --junit no/such/folder", "--junit no/such/folder"},
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

TEST_F(Oisctl, SignalsEndEveryCommandInOrderWithTheirStatus) {
    const std::tuple<const char*, const char*, int> cases[] = {
        {"session --hold 60", "INT", 130},    {"session --hold 60", "TERM", 143},
        {"session --hold 60", "HUP", 129},    {"record --seconds 60", "INT", 130},
        {"samples --seconds 60", "INT", 130}, {"registers --watch", "TERM", 143},
        {"detect-defect", "INT", 130},        {"calibrate", "HUP", 129},
        {"compliance", "INT", 130},           {"firmware-update --times 9", "TERM", 143}};
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

// Keys by the path to them: "modules[].name".
void addKeys(const json& value, const std::string& path, std::set<std::string>& keys) {
    if (value.is_object()) {
        for (const auto& [key, part] : value.items()) {
            const std::string name =
                path.ends_with("commands") || path.ends_with("customisation") ? "NAME" : key;
            addKeys(part, path.empty() ? name : path + "." + name, keys);
        }
    } else if (value.is_array()) {
        for (const json& part : value) addKeys(part, path + "[]", keys);
    } else {
        keys.insert(path);
    }
}

// What is null here and has parts there is told by its parts.
void removeUnknown(std::set<std::string>& keys) {
    std::erase_if(keys, [&keys](const std::string& key) {
        const auto next = keys.upper_bound(key);
        return next != keys.end() && (next->starts_with(key + ".") || next->starts_with(key + "[]"));
    });
}

// The keys that each section of the document names, by its heading.
std::map<std::string, std::set<std::string>> documentedKeys() {
    std::map<std::string, std::set<std::string>> sections;
    std::ifstream document(OIS_SOURCE_DIR "/docs/json.md");
    std::string section;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("## ")) section = line.substr(3);
        if (!line.starts_with("| `")) continue;
        std::string cell = line.substr(0, line.find(" | "));
        for (size_t begin = 0; (begin = cell.find('`', begin)) != std::string::npos;) {
            const size_t end = cell.find('`', begin + 1);
            sections[section].insert(cell.substr(begin + 1, end - begin - 1));
            begin = end + 1;
        }
    }
    return sections;
}

TEST_F(Oisctl, JsonHasTheKeysThatTheDocumentNames) {
    const std::string module = run("modules dw9786 --toml").out;
    write("doubtful.toml", replaced(module, "driverName = .*", "driverName = \"\""));
    write("nowhere.toml", moduleOfNoDevice());
    run("record --seconds 0.2");
    run("record --seconds 0.2 --fault lens.stuck-x -o other");
    const std::string recording = readFile(mFolder / "ois_dump_tele_dw9786_status.txt");
    write("cut.txt", recording.substr(0, recording.size() - 9));
    write("cut.txt.about.json", "{}");
    run("session --json --trace=a.jsonl");
    run("session -m dw9786 --trace=c.jsonl");
    run("session --json --trace=b.jsonl --fault SET_MODE@3:lost");
    write("changed.jsonl", replaced(readFile(mFolder / "a.jsonl"), R"("mode":2)", R"("mode":0)"));
    std::vector<std::pair<const char*, std::vector<const char*>>> cases{
        {"session, op, mode",
         {"session --wall-time --fault SET_MODE@3:lost --fault SET_MODE@300:lost",
          "session -m nowhere.toml --kernel real", "session -m dw9786 --operations on,off",
          "session --scenario fix-mode", "op read-gain-x", "mode 2"}},
        {"decode", {"decode 0x400456C2", "decode '0x400456C2: 02000000'"}},
        {"compare, of traces", {"compare a.jsonl b.jsonl --aside telemetry"}},
        {"compare, of recordings",
         {"compare cut.txt ois_dump_tele_dw9786_status.txt",
          "compare ois_dump_tele_dw9786_status.txt other/ois_dump_tele_dw9786_status.txt"}},
        {"replay", {"replay changed.jsonl", "replay c.jsonl", "replay c.jsonl --as-scenario c.toml"}},
        {"timeline", {"timeline c.jsonl", "timeline zoom-active-ois -m dw9786"}},
        {"probe", {"probe --kernel simulated"}},
        {"compliance", {"compliance --fault READ_STATUS:garbage=00"}},
        {"calibrate", {"calibrate"}},
        {"firmware-update", {"firmware-update", "firmware-update -m dw9786"}},
        {"registers", {"registers --watch --seconds 0.1"}},
        {"detect-defect", {"detect-defect"}},
        {"record, stats", {"record --seconds 0.5", "stats cut.txt"}},
        {"report", {"report a.jsonl ois_dump_tele_dw9786_status.txt"}},
        {"export", {"export ois_dump_tele_dw9786_status.txt", "export a.jsonl"}},
        {"dump", {"dump otp", "dump flash -o ."}},
        {"samples", {"samples"}},
        {"modules", {"modules", "modules no-ois", "modules doubtful.toml"}},
        {"scenarios", {"scenarios", "scenarios video-zoom", "scenarios --fields"}},
        {"properties", {"properties"}},
        {"faults", {"faults"}},
    };
    if (std::system("command -v gnuplot >/dev/null") == 0)
        cases.push_back({"plot", {"plot ois_dump_tele_dw9786_status.txt"}});
#ifndef OIS_EMULATED
    cases.push_back({"spy",
                     {"spy --json -- sh -c 'ASAN_OPTIONS=verify_asan_link_order=0 " OISCTL_COMMAND
                      " mode 2 >spied.txt'"}});
#endif
    auto documented = documentedKeys();
    const std::set<std::string> common = documented["Commands that open the driver"];
    std::set<std::string> seenOfCommon;
    for (const auto& [section, commands] : cases) {
        std::set<std::string> seen;
        for (const char* command : commands) {
            std::istringstream lines(run(std::string(command) + " --json").out);
            for (std::string line; std::getline(lines, line);) {
                const json object = parsed(line);
                addKeys(object, "", seen);
                EXPECT_TRUE(object.value("format", 0) == 2 || section == std::string("decode"))
                    << command << line;
            }
        }
        removeUnknown(seen);
        const bool opens = seen.erase("good") != 0;
        seen.erase("format");
        for (const std::string& key : common)
            if (opens && (seen.erase(key) != 0 || key == "good")) seenOfCommon.insert(key);
        EXPECT_EQ(seen, documented[section]) << section;
    }
    EXPECT_EQ(seenOfCommon, common);
}

TEST_F(Oisctl, StatsOfManyFilesLosesNone) {
    run("record --seconds 0.5 -o a");
    run("record --seconds 0.5 -o b --fault lens.stuck-x");
    write("c.txt", "no recording\n");
    const std::string name = "/ois_dump_tele_dw9786_status.txt";
    const struct {
        std::string files;
        int status;
        size_t good, bad;
    } cases[] = {
        {"a" + name + " a" + name, 0, 2, 0},
        {"b" + name + " a" + name, 1, 1, 1},
        {"a" + name + " c.txt b" + name, 2, 1, 1},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run("stats --json --require-good " + c.files);
        EXPECT_EQ(outcome.status, c.status) << c.files;
        EXPECT_EQ(lines(outcome.err), c.status == 2 ? 1U : 0U) << outcome.err;
        size_t good = 0, bad = 0;
        std::istringstream stream(outcome.out);
        for (std::string line; std::getline(stream, line);)
            ++(parsed(line)["recording_good"] == true ? good : bad);
        EXPECT_EQ(std::pair(good, bad), std::pair(c.good, c.bad)) << c.files;
    }
}

TEST_F(Oisctl, TwoRunsAreEqualByteByByte) {
    for (const char* command :
         {"session --json", "record --seconds 0.5 --json", "calibrate --json --trace", "session"})
        EXPECT_EQ(run(command).out, run(command).out) << command;
}

TEST_F(Oisctl, ShellsCompleteCommandsOptionsAndValues) {
    write("oisctl.bash", run("--generate bash").out);
    write(
        "ask",
        "source ./oisctl.bash; COMP_WORDS=(oisctl \"$@\"); COMP_CWORD=$#; _oisctl; echo \"${COMPREPLY[*]}\"");
    const std::pair<const char*, const char*> cases[] = {
        {"se", "session"},
        {"session --ker", "--kernel"},
        {"session --module dw", "dw9781 dw9786"},
        {"session --module = dw", "dw9781 dw9786"},
        {"session --scenario vi", "video-zoom"},
        {"session --set sineF", "sineFre="},
        {"session --operations on,acc", "on,acc-on on,acc-off"},
        {"op wr", "write-gain-x write-gain-y"},
        {"op --seed o", ""},
        {"registers -W CL", "CLOCK="},
    };
    for (const auto& [words, expected] : cases) {
        std::FILE* pipe = popen(("cd " + mFolder.string() + " && bash ask " + words).c_str(), "r");
        std::array<char, 256> answer{};
        ASSERT_NE(std::fgets(answer.data(), answer.size(), pipe), nullptr);
        pclose(pipe);
        EXPECT_EQ(answer.data(), std::string(expected) + "\n") << words;
    }
    // Their own shells read the others, and the manual's reader the manual, where there is one.
    const std::pair<const char*, const char*> readers[] = {
        {"zsh", "zsh -n"}, {"fish", "fish -n"}, {"man", "LC_ALL=C man --warnings=mac -l"}};
    for (const auto& [kind, reader] : readers) {
        write(kind, run(std::string("--generate ") + kind).out);
        const std::string check = "cd " + mFolder.string() + "; command -v " + kind +
                                  " >/dev/null || exit 0; test -z \"$(" + reader + " ./" + kind +
                                  " 2>&1 >/dev/null)\"";
        EXPECT_EQ(std::system(check.c_str()), 0) << kind;
    }
}

TEST_F(Oisctl, RegistersByName) {
    const Outcome table = run("registers --write STABILISATION_MODE=16 --json");
    const json registers = parsed(table.out)["registers"];
    const auto mode = std::find_if(registers.begin(), registers.end(),
                                   [](const json& entry) { return entry["name"] == "STABILISATION_MODE"; });
    ASSERT_NE(mode, registers.end());
    EXPECT_EQ((*mode)["value"], 16);
}

// A verdict is what got through, not that a call returned.
TEST_F(Oisctl, VerdictsAreOfWhatGotThrough) {
    const struct {
        const char* command;
        const char* key;
        const char* verdict;
        int status;
    } cases[] = {
        {"calibrate", "calibration", "measured", 0},
        {"calibrate --fault hub.READ_REGISTER:fail", "calibration", "not told", 1},
        {"calibrate --fault WRITE_REGISTER@5:lost", "flash", "not told", 1},
        {"calibrate --fault chip.calibration-error=0x20", "calibration", "failed", 1},
        {"calibrate --fault chip.flash-data-changed", "flash", "other data changed", 1},
        {"calibrate --set bypassen=1", "calibration", "not told", 1},
        {"calibrate -m dw9786", "calibration", "accepted", 0},
        {"calibrate -m dw9786 --fault SET_GYRO_OFFSET:lost", "calibration", "lost", 1},
        {"calibrate -m dw9786 --fault SET_GYRO_OFFSET:errno=EIO", "calibration", "refused", 1},
        {"detect-defect", "axes/0/verdict", "good", 0},
        {"detect-defect --fault lens.stuck-x", "axes/0/verdict", "defective", 1},
        {"detect-defect -m korvas4sw-hub", "axes/0/verdict", "not told", 1},
        {"detect-defect --fault request@after20:errno=EIO", "axes/0/verdict", "not told", 1},
        {"detect-defect --fault SET_FIX_MODE@9:lost", "axes/0/verdict", "not told", 1},
        {"detect-defect --fault thread@2:fail", "axes/0/verdict", "not examined", 1},
        {"registers --fault READ_REGISTER:fail", "registers/0/value", "null", 1},
        {"session", "calls/0/sent_nothing", "0", 0},  // Init, whose thread sends
        {"session", "calls/1/sent_nothing", "1", 0},
        {"session --fault lens.stuck", "failures", "0", 1},
        {"detect-defect --fault lens.stuck", "axes/0/verdict", "defective", 1},
        {"mode 99", "failures", "1", 1},
        {"op detect-defect -m dw9786 --fault lens.stuck", "failures", "1", 1},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run(std::string(c.command) + " --json");
        const json value = parsed(outcome.out).at(json::json_pointer(std::string("/") + c.key));
        EXPECT_EQ(value.is_string() ? value.get<std::string>() : asText(value), c.verdict) << c.command;
        EXPECT_EQ(outcome.status, c.status) << c.command;
    }
}

// Whoever runs the detector hears what it found, and only what it found.
TEST_F(Oisctl, TheDetectorsOutcomeCountsWhereverItRuns) {
    write("once.toml", "duration_s = 0.1\n[[at]]\ns = 0\noperation = 19\n");
    write("request.toml", "duration_s = 0.1\n[[span]]\nengineer_mode = 8\nengineer_operation = 19\n");
    const struct {
        const char* fault;
        const char* says;  // beside the fault's own strikes; null: nothing
    } cases[] = {
        {"", nullptr},
        {" --fault lens.stuck", "the detector found a defect"},
        {" --fault GET_HALL:errno=EIO", nullptr},
        {" --fault GET_HALL:lost", nullptr},
        {" --fault request@after5:errno=EIO", nullptr},
        {" -m korvas4sw-hub", "the detector tells nothing: no hall position was read back"},
    };
    for (const char* command : {"op detect-defect", "session --hold 0 --operations detect-defect",
                                "session --scenario once.toml", "session --scenario request.toml"}) {
        for (const auto& c : cases) {
            const std::string options(c.fault);
            const std::string line =
                command + (options.starts_with(" -m") ? options : " -m dw9786" + options);
            SCOPED_TRACE(line);
            const Outcome outcome = run(line + " --json");
            EXPECT_EQ(outcome.status, options.empty() ? 0 : 1);
            json said;
            const json report = parsed(outcome.out);
            ASSERT_TRUE(report.is_object()) << outcome.err;
            for (const json& failure : report["first_failures"])
                if (const std::string what = failure["what"]; what.starts_with("the detector")) said = what;
            EXPECT_EQ(said, c.says == nullptr ? json() : json(c.says));
        }
    }
}

// Neither a longer look nor another hand turns a verdict round: the shake is compared with itself.
TEST_F(Oisctl, ShakeLeftIsHeldAgainstTheSameStretch) {
    const struct {
        const char* command;
        double least, most;
    } cases[] = {
        {"session", -35, -15},
        {"session --motion walk", -35, -15},
        {"session -m dw9786 --fault lens.stuck", 0, 0},
        {"session -m dw9786 --fault lens.sluggish-x --fault lens.sluggish-y", -15, -1},
        {"session -m dw9786 --modes 0,2 --operations off", -35, -15},
    };
    for (const auto& c : cases) {
        for (const char* rest :
             {" --hold 0.5", " --hold 1.5", " --hold 0.5 --seed 2", " --hold 1.5 --seed 3"}) {
            const json shake = parsed(run(std::string(c.command) + rest + " --json").out)["shake_left"];
            EXPECT_GE(shake["change_db"], c.least) << c.command << rest;
            EXPECT_LE(shake["change_db"], c.most) << c.command << rest;
            EXPECT_GT(shake["stretches"][0]["from_s"], 0.5) << "not before the lens has settled";
        }
    }
    EXPECT_TRUE(parsed(run("session --modes 0 --operations off --json").out)["shake_left"].is_null());
}

TEST_F(Oisctl, CommandsAreFoldedOnlyWhenTheirAnswersAreAlikeToo) {
    const std::string out = run("op 2 --set bypassen=0 --motion rest").out;
    EXPECT_NE(out.find("... the same"), std::string::npos) << out;
    EXPECT_NE(out.find("GYRO_CALIBRATION = 0"), std::string::npos) << "the poll that found it done" << out;
}

class FaultExample : public Oisctl, public testing::WithParamInterface<phone::FaultPlace> {};

TEST_P(FaultExample, Strikes) {
    const Outcome outcome = run(std::string(GetParam().arguments) + " --json");
    std::istringstream lines(outcome.out);
    std::string last;
    for (std::string line; std::getline(lines, line);) last = line;
    const json report = parsed(last);
    EXPECT_FALSE(report["faults"].empty());
    for (const json& fault : report["faults"]) EXPECT_GT(fault["strikes"], 0) << fault;
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultExample, testing::ValuesIn(phone::faultPlaces()),
                         [](const testing::TestParamInfo<phone::FaultPlace>& example) {
                             std::string name(example.param.name.empty() ? "command" : example.param.name);
                             std::ranges::replace_if(
                                 name, [](char c) { return c == '.' || c == '-'; }, '_');
                             return name;
                         });

TEST_F(Oisctl, TheDocumentsScenarioDoesWhatItSays) {
    const std::string document = readFile(OIS_SOURCE_DIR "/docs/simulated-phone.md");
    const size_t begin = document.find("```toml\n") + 8;
    std::ofstream(mFolder / "example.toml") << document.substr(begin, document.find("```", begin) - begin);
    for (const char* module : {"korvas4sw-hub", "dw9786"}) {
        const Outcome outcome = run(std::string("session --scenario example.toml --json -m ") + module);
        EXPECT_EQ(parsed(outcome.out)["faults"][0]["strikes"], 1) << module;
    }
}

}  // namespace
