#include "commands/commands.h"

namespace oisctl {

const std::vector<CommandEntry>& commands() {
    static const std::vector<CommandEntry> all{
        {"Sessions", "session", "Run a camera session: open, stream, modes, operations, close",
         describeSession},
        {"Sessions", "op", "Run one operation on the open driver", describeOperation},
        {"Sessions", "mode", "Set one working mode on the open driver", describeMode},
        {"Sessions", "decode", "Say in words what request codes and hub records in hex are", describeDecode},
        {"Sessions", "spy", "Run a program and capture what passes between it and the controller",
         describeSpy},
        {"Sessions", "compare",
         "Hold two traces, or two recordings, beside each other and say where they part", describeCompare},
        {"Sessions", "replay", "Call and answer the driver as a trace has it, and say where it differs",
         describeReplay},
        {"Sessions", "timeline", "Show what was sent, why, and what was held back", describeTimeline},
        {"Controller", "probe", "Show which lens the driver finds here, and ask it what harms nothing",
         describeProbe},
        {"Controller", "compliance", "Check a kernel driver's private requests, one line a check",
         describeCompliance},
        {"Controller", "calibrate", "Measure the gyro offset and save it to the controller's flash",
         describeCalibrate},
        {"Controller", "firmware-update", "Bring the controller's firmware up to date",
         describeFirmwareUpdate},
        {"Controller", "registers", "Show the register map of the chip behind the hub", describeRegisters},
        {"Controller", "detect-defect", "Walk the lens through its test positions and judge the actuator",
         describeDetectDefect},
        {"Recordings", "record", "Record gyro, targets and hall positions with the driver's recorder",
         describeRecord},
        {"Recordings", "plot", "Draw a status recording: target, hall, lens path, spectrum", describePlot},
        {"Recordings", "stats", "Say what a status recording holds: rate, gaps, tracking, verdicts",
         describeStats},
        {"Recordings", "report", "Write one page to hand over, of a trace and a recording", describeReport},
        {"Recordings", "export", "Write a recording or a trace in a form that other programs read",
         describeExport},
        {"Recordings", "dump", "Dump the module's OTP memory or the controller's flash data", describeDump},
        {"Recordings", "samples", "Show the motion samples of the sensor hub's OIS channel", describeSamples},
        {"Listings", "modules", "List the camera modules, or show one in detail", describeModules},
        {"Listings", "scenarios", "List the scenarios, show one, or check a file", describeScenarios},
        {"Listings", "properties", "List the system properties that the driver reads", describeProperties},
        {"Listings", "faults", "List what can go wrong on the simulated phone", describeFaults},
    };
    return all;
}

const std::vector<Example>& overviewExamples() {
    static const std::vector<Example> all{
        {"oisctl session", "one camera session, every command decoded"},
        {"oisctl session -m dw9786 --scenario video-zoom", "a timeline of 3A requests"},
        {"oisctl decode 0x400456C2", "what a private request is"},
        {"oisctl record -o out && oisctl plot out/*_status.txt -o shake.png"},
    };
    return all;
}

}  // namespace oisctl
