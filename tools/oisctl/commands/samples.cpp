// oisctl samples: the motion samples of the hub's OIS channel.

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>

#include "base/errors.h"
#include "base/interrupt.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "session/driver_session.h"
#include "session/summary.h"

namespace oisctl {

namespace {

constexpr double kMicrosPerSecond = 1e6;
constexpr double kNanosPerSecond = 1e9;
constexpr size_t kValues = 6;

struct Options {
    Settings settings;
    double seconds = 0.1;
    double everyS = 0.033;
};

std::array<const std::vector<float>*, kValues> valuesOf(const OISDrv& driver) {
    return {&driver.mSensorValue1, &driver.mSensorValue2, &driver.mSensorValue3,
            &driver.mSensorValue4, &driver.mSensorValue5, &driver.mSensorValue6};
}

void printSamples(const OISDrv& driver, bool json) {
    Table table({"TIME s", "1 GYRO X", "2 GYRO Y", "3 ACC X", "4 ACC Y", "5 GYRO Z", "6 ACC Z"});
    for (size_t column = 0; column <= kValues; ++column) table.alignRight(column);
    const auto values = valuesOf(driver);
    for (size_t i = 0; i < driver.mSensorTimestamps.size(); ++i) {
        const double seconds = static_cast<double>(driver.mSensorTimestamps[i]) / kNanosPerSecond;
        std::vector<std::string> cells{number(seconds, 6)};
        nlohmann::json sample{{"time_s", seconds}};
        for (const std::vector<float>* value : values) {
            cells.push_back(number(value->at(i), 6));
            sample["values"].push_back(value->at(i));
        }
        if (json) {
            printLine(sample.dump());
        } else {
            table.addRow(std::move(cells));
        }
    }
    if (!json) table.print();
}

int run(const Options& options) {
    DriverSession session(options.settings,
                          options.settings.verbose ? Narration::kCalls : Narration::kNothing);
    if (!session.behindHub() || !session.module().hasOis) {
        throw InputError("samples: only the sensor hub has motion samples, and " + session.module().name +
                         " is not behind it; try -m korvas4sw-hub");
    }
    session.openFor("samples");
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
    printSamples(session.driver(), options.settings.json);  // the close empties them
    session.close();
    return conclude(session, true);
}

}  // namespace

Command describeSamples() {
    auto options = std::make_shared<Options>();
    return {
        .options = withPhoneOptions(
            {{"--seconds", "S", "How long, in seconds", &options->seconds, {.range = Range{0.001, 86400}}},
             {"--every", "S", "Seconds between two drains", &options->everyS, {.range = Range{0.001, 3600}}}},
            options->settings),
        .notes =
            "The columns are the driver's six sample values, with what this phone's hub puts there: rad/s "
            "and m/s^2.\n",
        .examples = {{"oisctl samples --motion walk"}, {"oisctl samples --seconds 5 --json > samples.jsonl"}},
        .run = [options] { return run(*options); },
    };
}

}  // namespace oisctl
