#include "oisctl_fixture.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>

template class nlohmann::basic_json<>;

void nlohmann::PrintTo(const json& value, std::ostream* out) {
    *out << value;
}

json parsed(const std::string& text) {
    json value = json::parse(text, nullptr, false);
    EXPECT_FALSE(value.is_discarded()) << text;
    return value;
}

std::string asText(const json& value) {
    return value.dump();
}

std::string replaced(const std::string& text, const std::string& pattern, const std::string& by) {
    return std::regex_replace(text, std::regex(pattern), by);
}

std::string readFile(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

size_t lines(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

void Oisctl::SetUp() {
    fs::create_directories(mFolder);
}
void Oisctl::TearDown() {
    fs::remove_all(mFolder);
}

Outcome Oisctl::run(const std::string& arguments, const std::string& before) const {
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

json Oisctl::runJson(const std::string& arguments) const {
    const Outcome result = run(arguments + " --json");
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    return parsed(result.out.substr(result.out.rfind("\n{") + 1));
}

std::vector<json> Oisctl::trace(const std::string& arguments, const std::string& before) const {
    run(arguments + " --trace=trace.jsonl --json", before);
    std::ifstream file(mFolder / "trace.jsonl");
    std::vector<json> events;
    for (std::string line; std::getline(file, line);) events.push_back(parsed(line));
    return events;
}

std::string Oisctl::interruptedAt(const std::string& seen) {
    return R"(sh -c 'seen=$1; shift; "$@" & )"
           R"(until grep -qs "$seen" trace.jsonl || ! kill -0 $! 2>/dev/null; do sleep 0.02; done; )"
           R"(kill -TERM $! && wait $!' sh )" +
           seen;
}

std::string Oisctl::moduleOfNoDevice() const {
    return replaced(run("modules dw9786 --toml").out, "driverName = .*", "driverName = \"no_such_lens\"");
}

void Oisctl::write(const std::string& name, const std::string& text) const {
    std::ofstream(mFolder / name) << text;
}
