#pragma once
// Plays a scenario to the driver.

#include "scenario/scenario.h"
#include "session/driver_session.h"
#include "session/summary.h"

namespace oisctl {

// With what the scenario sets: properties, which the user's own override, and faults.
Settings withScenario(Settings settings, const Scenario& scenario);

// Opens, plays every frame, closes. What came of it is in the result; failures are in the session's tally.
Summary runScenario(DriverSession& session, const Scenario& scenario);

}  // namespace oisctl
