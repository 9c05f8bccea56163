// The tool's decoder of captures.

#include "capture/decode_command.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "test_support.h"

namespace {

using Json = nlohmann::json;

struct Decoded {
    int status;
    std::string out, err;
};

Decoded decode(const std::vector<std::string>& inputs, const std::string& standardInput = {},
               bool json = false, const std::optional<std::string>& file = std::nullopt) {
    std::istringstream in(standardInput);
    std::ostringstream out, err;
    const int status = oisctl::runDecode(inputs, file, json, in, out, err);
    return {status, out.str(), err.str()};
}

std::string hubDigits(const std::string& start) {
    return start + std::string(128 - start.size(), '0');
}

constexpr const char* kFixModeInfo =
    "sub-device  SET_FIX_MODE(0xC01856D4)  read/write, 24 bytes (OisFixMode): holds the lens at a target\n";
constexpr const char* kModeTwo = "sub-device  SET_MODE(0x400456C2) mode=2\n";
constexpr const char* kModeOn = "hub  write register 0x0002 STABILISATION_MODE = 16\n";

TEST(DecodeCommand, ReadsRequestsAndRecordsAsTheyAreCaptured) {
    const std::string record = hubDigits("010c0000020000000100000010000000");
    const std::pair<std::string, std::string> items[] = {
        {"ffffffffc01856d4", kFixModeInfo},  // sign-extended
        {"[pid 7] ioctl(5, _IOC(_IOC_READ|_IOC_WRITE, 0x56, 0xd4, 0x18), 0x7ffd) = 0", kFixModeInfo},
        {"SET_MODE: {0x2, 0x0, 0x0, 0x0}", kModeTwo},
        {record, kModeOn},
        {"READ_GAIN: " + std::string(48, '0') + " -> " + std::string(40, '0') + "2a000000",
         "sub-device  READ_GAIN(0xC01856D0) axis=0 -> valueXf=0 valueYf=0 valueXi=0 valueYi=42\n"},
    };
    for (const auto& [item, expected] : items) {
        const Decoded argument = decode({item});
        EXPECT_EQ(argument.out, expected) << item << '\n' << argument.err;
        EXPECT_EQ(argument.status, 0) << item;
        EXPECT_EQ(decode({}, item + "\n").out, expected) << item;
    }
    // What a shell or an editor split is put together.
    EXPECT_EQ(decode({hubDigits("000c01000100000001000000"), "->", hubDigits("000c010001")}).out,
              "hub  read register 0x0001 STATE = 1\n");
    const std::string lines = "# a capture\n\nSET_MODE: {0x02, 0x00, # low\n 0x00,\n 0x00}\n" +
                              record.substr(0, 60) + "\\\n" + record.substr(60) +
                              "\n+++ exited with 0 +++\n0xC01856D4\n";
    EXPECT_EQ(decode({}, lines).out, std::string(kModeTwo) + kModeOn + kFixModeInfo);
}

TEST(DecodeCommand, ReportsWhatItCannotReadAndGoesOn) {
    const std::pair<std::string, std::string> items[] = {
        {hubDigits("01").substr(0, 126),
         "a hub record has 64 bytes, that is 128 hex digits; here are 126, 2 missing"},
        {"400456C2: 0200", "the record of SET_MODE has 4 bytes, that is 8 hex digits; here are 4, 4 missing"},
        {"400456C2: 0x00000002", "write the bytes in memory order"},
        {"SET_MOD", "did you mean 'SET_MODE'?"},
        {"SET_MODE: {02, 00", "'{' is not closed"},
        {"\x1b[2J\xff", "'?[2J?' is neither a request"},
    };
    for (const auto& [item, expected] : items) {
        const Decoded decoded = decode({}, "0xC01856D4\n" + item + "\n0xC01856D4\n");
        EXPECT_EQ(decoded.out, std::string(kFixModeInfo) + kFixModeInfo) << item;
        EXPECT_EQ(decoded.err.rfind("oisctl: standard input:2: ", 0), 0U) << decoded.err;
        EXPECT_NE(decoded.err.find(expected), std::string::npos) << decoded.err;
        EXPECT_EQ(std::count(decoded.err.begin(), decoded.err.end(), '\n'), 1) << decoded.err;
        EXPECT_NE(decoded.status, 0);
    }
}

// What comes out of a tracer, a phone's log, or this tool itself.
TEST(DecodeCommand, TakesWhatIsOursOutOfOtherLines) {
    const std::string event = decode({"SET_MODE: 02000000"}, {}, true).out;
    const std::pair<std::string, std::string> lines[] = {
        {"strace: Process 12 attached", ""},
        {"[pid    12] ioctl(5, TCGETS, 0x7ffd) = 0", ""},
        {"[pid    12] 11:22:33.4 openat(AT_FDCWD, \"/dev/media0\", O_RDWR) = 3", ""},
        {"[pid    12] <... ioctl resumed>)       = 0", ""},
        {"[pid    12] ioctl(5, _IOC(_IOC_READ|_IOC_WRITE, 0x56, 0xd4, 0x18) <unfinished ...>", kFixModeInfo},
        {"[pid    12] ioctl(5, _IOC(_IOC_READ, 0x12, 0x01, 0x4), 0x7ff) = 0", ""},
        {"12.5 ioctl(5, 0xc01856d4, 0x7) = -1 EIO (Input/output error)",
         "sub-device  SET_FIX_MODE(0xC01856D4) -> -1 EIO (Input/output error)  read/write, 24 bytes "
         "(OisFixMode): "
         "holds the lens at a target\n"},
        {"--- SIGCHLD {si_signo=SIGCHLD} ---", ""},
        {"ioctl(5, 0xc01856d4, 0x7) = 5",
         "sub-device  SET_FIX_MODE(0xC01856D4) -> 5  read/write, 24 bytes (OisFixMode): holds the lens at a "
         "target\n"},
        {event, kModeTwo},
        {"   12.345 ms  #1  sub-device  SET_MODE(0x400456C2) mode=2",
         "   12.345 ms  #1  sub-device  SET_MODE(0x400456C2) mode=2\n"},
        {"    0.0100 s    hub  INIT(17) bypass=1", "    0.0100 s    hub  INIT(17) bypass=1\n"},
        {"11-21 10:00:00.000  1234  1240 E OisDrv  : [SetMode] unsupport mode 4",
         "message E [SetMode] unsupport mode 4\n"},
        {"I/OisDrv( 1234): [Init] done", "message I [Init] done\n"},
        {"<6>[   12.345678] OisDrv: [Uninit] -", "message D [Uninit] -\n"},
        {"11-21 10:00:00.000  1234  1240 E OtherDrv: OisDrv", ""},
        {"--------- beginning of main", ""},
        {"[    1.000000] usb 1-1: new device", ""},
    };
    for (const auto& [line, expected] : lines) {
        const Decoded decoded = decode({}, line + "\n0xC01856D4\n");
        EXPECT_EQ(decoded.out, expected + kFixModeInfo) << line;
        EXPECT_EQ(decoded.err.find("1 line left out") != std::string::npos, expected.empty())
            << line << decoded.err;
        EXPECT_EQ(decoded.status, 0) << line << decoded.err;
    }
    EXPECT_EQ(decode({}, event, true).out, event) << "its own output again";
}

TEST(DecodeCommand, ReadsFilesAndSaysWhenThereIsNothing) {
    const test_support::TemporaryFile file("0xC01856D4\r\n");
    EXPECT_EQ(decode({}, {}, false, file.path).out, kFixModeInfo);
    EXPECT_EQ(decode({}, {}, false, "/no/such").err,
              "oisctl: /no/such: cannot be read: No such file or directory\n");
    EXPECT_EQ(decode({}, "0xC01856D4\n", false, "-").out, kFixModeInfo);
    EXPECT_EQ(Json::parse(decode({"400456C2", "02000000"}, {}, true).out)["fields"]["mode"], 2);
    const Decoded empty = decode({}, "# nothing\n");
    EXPECT_NE(empty.status, 0);
    EXPECT_NE(empty.err.find("nothing to decode"), std::string::npos);
}

}  // namespace
