// oisctl samples: the motion samples of the hub's OIS channel.

#include <algorithm>
#include <cmath>
#include <memory>

#include "base/interrupt.h"
#include "base/units.h"
#include "commands/commands.h"
#include "session/driver_session.h"
#include "session/summary.h"

namespace oisctl {

namespace {

constexpr double kNanosPerSecond = 1e9;

struct SamplesOptions {
    Settings settings;
    double seconds = 0.1;
    double everyS = 0.033;
};

Record report(const OISDrv& driver) {
    const std::tuple<const char*, const char*, const std::vector<float>*> values[] = {
        {"gyro_x", "1 gyro x", &driver.mSensorValue1}, {"gyro_y", "2 gyro y", &driver.mSensorValue2},
        {"acc_x", "3 acc x", &driver.mSensorValue3},   {"acc_y", "4 acc y", &driver.mSensorValue4},
        {"gyro_z", "5 gyro z", &driver.mSensorValue5}, {"acc_z", "6 acc z", &driver.mSensorValue6}};
    Table table;
    for (size_t i = 0; i < driver.mSensorTimestamps.size(); ++i) {
        const double seconds = static_cast<double>(driver.mSensorTimestamps[i]) / kNanosPerSecond;
        Record& row = table.emplace_back(Record{measured("time_s", "time s", seconds, 6, "")});
        for (const auto& [key, label, value] : values)
            row.push_back(measured(key, label, value->at(i), 6, ""));
    }
    return {{"samples", "", table}};
}

int runSamples(const SamplesOptions& options) {
    DriverSession session(options.settings, Narration::kIfVerbose);
    session.requireModule("samples", "behind the sensor hub", onHub);
    if (!session.openFor()) return conclude(session, Record());
    session.notifyStream(true);
    const double endS = session.nowS() + options.seconds;
    {
        Progress progress("samples", options.seconds);
        while (session.nowS() < endS && !interrupted()) {
            const double waitS = std::min(options.everyS, endS - session.nowS());
            session.sleepUs(std::max<int64_t>(1, std::llround(waitS * kMicrosPerSecond)));
            session.call("GetSensorData", {}, [&session] {
                session.driver().GetSensorData();
                return 0;
            });
            progress.update(options.seconds - (endS - session.nowS()));
        }
    }
    const Record samples = report(session.driver());  // the close empties them
    if (session.driver().mSensorTimestamps.empty()) session.fail("no motion sample came from the hub");
    session.close();
    return conclude(session, samples, Ending::kRemarks);
}

}  // namespace

Command describeSamples() {
    auto options = std::make_shared<SamplesOptions>();
    return {
        .options = withPhoneOptions({value("--seconds", "S", "How long, in seconds", &options->seconds,
                                           {.range = Range{0.001, 86400}}),
                                     value("--every", "S", "Seconds between two drains", &options->everyS,
                                           {.range = Range{0.001, 3600}})},
                                    options->settings),
        .notes =
            "The columns are the driver's six sample values, with what this phone's hub puts there: rad/s "
            "and m/s^2.\n",
        .examples = {{"oisctl samples --motion walk"}, {"oisctl samples --seconds 5 --json > samples.json"}},
        .run = [options] { return runSamples(*options); },
    };
}

}  // namespace oisctl
