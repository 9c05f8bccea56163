#pragma once
// The driver's operations by name, as traces have them.

#include <string>
#include <vector>

#include "capture/trace_file.h"
#include "ois_drv.h"

namespace oisctl {

// Makes the recorded call again: its arguments are the event's fields, and the record that it carries. The
// event then is the one that ends the call. Throws InputError that says what the event lacks, or that there
// is no such operation.
void makeCall(OISDrv& driver, phone::Event& call);

// Those that can be made.
std::vector<std::string> driverCallNames();

}  // namespace oisctl
