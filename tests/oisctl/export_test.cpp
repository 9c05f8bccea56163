// Recordings and traces in forms that other programs read: what was written is read again.

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "export/recording_export.h"
#include "export/trace_events.h"
#include "oisctl_fixture.h"
#include "trace/decode.h"
#include "wire/requests.h"

namespace {

using oisctl::Slice;
using oisctl::TraceFile;
using phone::Event;
using phone::EventKind;

std::vector<std::vector<std::string>> cells(const std::string& text) {
    std::vector<std::vector<std::string>> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream row(line);
        result.emplace_back();
        for (std::string cell; std::getline(row, cell, ',');) result.back().push_back(cell);
    }
    return result;
}

// Two rows, and a second session.
oisctl::Recording recording() {
    oisctl::Recording recording;
    recording.timeS = {0, 0.004, 1.004};
    recording.lines = {2, 3, 5};
    recording.stretches = {{0, 7}, {2, 20, oisctl::Stretch::Start::kTimeAhead}};
    for (size_t column = 0; column < oisctl::kColumnCount; ++column) {
        if (column == static_cast<size_t>(oisctl::Column::kTimestamp)) continue;
        const auto value = static_cast<float>(column);
        recording.columns[column] = {value, value / 10, -value};
    }
    recording.columns[20][0] = NAN;
    return recording;
}

TEST(Export, CsvHasEveryColumnWithItsUnit) {
    std::string text;
    oisctl::Known known;
    known.trueMotion = {oisctl::Samples{1, 2, 3}, oisctl::Samples{4, 5, 6}};
    oisctl::exportCsv(recording(), known, [&](std::string_view piece) { text += piece; });
    const auto rows = cells(text);
    ASSERT_EQ(rows.size(), 4U);
    std::map<std::string, size_t> at;
    for (const std::string& name : rows[0]) at.emplace(name, at.size());
    for (const auto& row : rows) EXPECT_EQ(row.size(), at.size());
    const std::pair<const char*, std::vector<const char*>> columns[] = {
        {"time_s", {"0.000000", "0.004000", "1.004000"}},
        {"session", {"1", "1", "2"}},
        {"controller_time_s", {"7.000000", "7.004000", "20.000000"}},
        {"line", {"2", "3", "5"}},
        {"chose", {"0", "0", "-0"}},
        {"gyro_raw_x_counts", {"2", "0.2", "-2"}},
        {"angle_hall_x_deg", {"nan", "2", "-20"}},
        {"true_motion_y_deg", {"4", "5", "6"}},
    };
    for (const auto& [name, values] : columns) {
        ASSERT_TRUE(at.contains(name)) << name;
        for (size_t row = 0; row < values.size(); ++row)
            EXPECT_EQ(rows[row + 1][at[name]], values[row]) << name;
    }
}

TEST(Export, AnImuLogSaysWhatItsCountsAre) {
    std::string text;
    const auto put = [&](std::string_view piece) { text += piece; };
    oisctl::exportImuLog(recording(), {.gyroCountsPerRadS = 800, .accCountsPerMS2 = 1000 / 9.80665}, put);
    auto rows = cells(text);
    EXPECT_EQ(text.substr(0, text.find('\n')), "GYROFLOW IMU LOG");
    std::map<std::string, std::string> head;
    size_t first = 1;
    for (; rows[first][0] != "t"; ++first) head[rows[first][0]] = rows[first][1];
    for (const char* key : {"version", "id", "orientation", "note", "fwversion", "timestamp"})
        EXPECT_NE(head[key], "") << key;
    EXPECT_EQ(head["tscale"], "0.000001");
    EXPECT_EQ(head["gscale"], "0.00125");
    EXPECT_NEAR(std::stod(head["ascale"]), 0.001, 1e-12);
    EXPECT_EQ(rows[first], (std::vector<std::string>{"t", "gx", "gy", "gz", "ax", "ay", "az"}));
    EXPECT_EQ(rows[first + 2], (std::vector<std::string>{"4000", "0.2", "0.3", "0.4", "0.5", "0.6", "0.7"}));
    text.clear();
    oisctl::exportImuLog(recording(), {.gyroCountsPerRadS = 800}, put);
    EXPECT_EQ(cells(text).back().size(), 4U) << "no accelerometer whose scale nobody knows";
}

Event at(int64_t timeUs, Event event, uint32_t thread = 0) {
    event.timeUs = timeUs;
    event.thread = thread;
    return event;
}
Event call(const char* name, bool ended) {
    Event event{.kind = EventKind::kCall, .name = name};
    if (ended) event.result = 0;
    return event;
}
Event sleep(uint64_t us) {
    return {.kind = EventKind::kSleep, .name = "usleep", .fields = {{"us", us}}};
}
Event setMode(uint8_t mode, int64_t tookUs, int error = 0) {
    Event event =
        phone::requestEvent(ois::code(ois::Request::kSetMode), std::vector<uint8_t>{mode, 0, 0, 0}, {});
    event.tookUs = tookUs;
    event.error = error;
    event.result = error == 0 ? 0 : -1;
    return event;
}
TraceFile traceOf(std::vector<Event> events) {
    TraceFile trace{"trace", {}, {}};
    for (Event& event : events) trace.events.push_back({trace.events.size() + 1, std::move(event)});
    return trace;
}

TEST(Export, SlicesOfAThreadAreApartOrWithinEachOther) {
    const TraceFile trace = traceOf({
        at(0, call("A", false)),
        at(100, setMode(2, 60)),
        at(110, sleep(50)),
        at(120, setMode(3, 0), 1),
        at(165, setMode(0, 30)),  // measured for longer than there was time since the sleep
        at(170, sleep(1000)),
        at(180, call("A", true)),  // woken early
        at(200, call("B", false)),
        at(210, setMode(1, 0, EIO)),
        at(300, sleep(7), 1),
    });
    std::vector<std::array<int64_t, 3>> found;
    for (const Slice& slice : oisctl::slicesOf(trace))
        found.push_back({slice.traced->event.thread, slice.fromUs, slice.untilUs});
    const std::vector<std::array<int64_t, 3>> expected{{0, 0, 180},   {0, 40, 100},  {0, 110, 160},
                                                       {1, 120, 120}, {0, 160, 165}, {0, 170, 180},
                                                       {0, 200, 300}, {0, 210, 210}, {1, 300, 307}};
    EXPECT_EQ(found, expected);
    std::vector<std::string> modes;
    for (const oisctl::ModeSlice& mode : oisctl::modesOf(trace))
        modes.push_back(mode.name + " " + std::to_string(mode.fromUs) + "-" + std::to_string(mode.untilUs));
    EXPECT_EQ(modes, (std::vector<std::string>{"2 on 100-120", "3 video 120-165", "0 off 165-300"}));
}

// Whether what a viewer gets nests on every track; gives how many slices there are of each category.
std::map<std::string, size_t> nested(const json& events) {
    std::map<std::string, size_t> counts;
    std::map<int64_t, std::vector<int64_t>> ends;  // of the slices that are open, by track
    for (const json& event : events) {
        if (event["ph"] != "X") continue;
        ++counts[event["cat"]];
        std::vector<int64_t>& open = ends[event["tid"]];
        const int64_t from = std::llround(event["ts"].get<double>() * 1000);
        const int64_t until = from + std::llround(event["dur"].get<double>() * 1000);
        EXPECT_GT(until, from) << "without length, begin and end have no order: " << event;
        while (!open.empty() && open.back() <= from) open.pop_back();
        EXPECT_TRUE(open.empty() || until <= open.back()) << event;
        EXPECT_TRUE(open.empty() || event["cat"] != "call") << "these follow each other: " << event;
        open.push_back(until);
    }
    return counts;
}

TEST_F(Oisctl, ExportsWhatAViewerOpens) {
    run("session -m dw9786 --fault READ_HALL_INFO:slow=3ms --trace=run.jsonl");
    run("session --set bypassen=0 --trace=hub.jsonl");
    for (const char* name : {"run", "hub"}) {
        ASSERT_EQ(run(std::string("export ") + name + ".jsonl").status, 0);
        const json all = parsed(readFile(mFolder / (std::string(name) + ".trace.json")));
        ASSERT_TRUE(all.is_object());
        const auto counts = nested(all["traceEvents"]);
        for (const char* category :
             {"call", "sleep", "mode", name == std::string("run") ? "sub-device" : "hub"})
            EXPECT_TRUE(counts.contains(category)) << name << ": " << category;
        std::set<std::string> tracks;
        for (const json& event : all["traceEvents"])
            if (event["ph"] == "M") tracks.insert(event["args"]["name"]);
        EXPECT_TRUE(tracks.contains("thread 0, calls the driver") &&
                    tracks.contains("thread 1, started by Init") && tracks.contains("stabilisation mode"))
            << json(tracks);
    }
}

TEST_F(Oisctl, AnExportIsWholeOrNotThere) {
    run("record --seconds 0.2");
    const std::string recording = "ois_dump_tele_dw9786_status.txt";
    ASSERT_EQ(run("export " + recording + " --as imu-log -o out.gcsv").status, 0);
    const std::string before = readFile(mFolder / "out.gcsv");
    EXPECT_NE(before.find("\nascale,"), std::string::npos);
    fs::remove(mFolder / (recording + ".about.json"));
    write("cut.txt", readFile(mFolder / recording) + "2  0.");
    for (const char* made : {"export cut.txt -o cut.csv", "plot cut.txt -o cut.png"})
        EXPECT_EQ(runJson(made)["rows_left_out"], 1) << made;
    const struct {
        std::string arguments;
        int status;
        const char* says;
    } cases[] = {
        {recording + " --as imu-log -o out.gcsv", 2, "--gyro-scale"},
        {recording + " --as trace-events -o out.gcsv", 2, "takes a trace"},
        {recording + " --as cvs -o out.gcsv", 2, "it may be: csv"},
        {recording + " -o ./" + recording, 2, "is what it would be made of"},
        {recording + " -o absent/x.csv", 1, "No such file"},
        {recording + " -o /dev/full", 1, "No space left on device"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = run("export " + c.arguments);
        EXPECT_EQ(outcome.status, c.status) << c.arguments;
        EXPECT_NE(outcome.err.find(c.says), std::string::npos) << outcome.err;
        EXPECT_EQ(lines(outcome.err), 1U);
    }
    EXPECT_EQ(readFile(mFolder / "out.gcsv"), before);
    EXPECT_FALSE(fs::exists(mFolder / "out.gcsv.part"));
}

}  // namespace
