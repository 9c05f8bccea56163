#pragma once
// What a scenario expects of the session that plays it.

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/toml_reader.h"
#include "services/log_service.h"
#include "trace/decode.h"

namespace oisctl {

// From one number to another, both included.
struct Bounds {
    double least = -std::numeric_limits<double>::infinity();
    double greatest = std::numeric_limits<double>::infinity();
    bool hold(double value) const { return value >= least && value <= greatest; }
    bool operator==(const Bounds&) const = default;
};

// A field of a command's record, and what it shall be.
struct FieldValue {
    std::string name;
    std::variant<Bounds, std::string> value;
};

// Commands, or calls of the driver: by name, and by what their fields, result and error are.
struct Selector {
    std::string text;  // as it was written: "SET_MODE mode=2"
    std::string name;
    std::vector<FieldValue> fields;
};

// What is expected. Of commands each one that the expectation selects counts, and there has to be one.
struct ExpectedCount {
    Bounds count;
};
struct ExpectedBytes {
    bool sent = true;  // else what came back
    std::vector<uint8_t> bytes;
};
struct ExpectedFields {
    std::string text;
    std::vector<FieldValue> fields;
};
struct ExpectedDelay {
    Selector after;  // counts from the last of these
    Bounds seconds;
};
// Of all commands that the list names they come in its order; several alike in a row count as one.
struct ExpectedOrder {
    std::vector<Selector> commands;
};
struct ExpectedShake {
    bool relative = false;  // in dB of the true shake, else in degrees
    Bounds value;
};
struct ExpectedSilence {
    phone::LogLevel above = phone::LogLevel::kInfo;  // the most severe that there may be
};
struct ExpectedFailures {
    Bounds count;
};

struct Expectation {
    std::vector<std::string> on;       // where it holds (knownPlaces); empty: everywhere
    std::optional<Selector> selector;  // of the first four
    Bounds timeS;                      // in which they are looked at
    std::variant<ExpectedCount, ExpectedBytes, ExpectedFields, ExpectedDelay, ExpectedOrder, ExpectedShake,
                 ExpectedSilence, ExpectedFailures>
        what;
};

// As it reads: "3 SET_MODE mode=2", "each READ_GAIN with result=0".
std::string toText(const Expectation& expectation);

// Whether that event is one of those selected.
bool selects(const Selector& selector, const phone::Event& event, const phone::Decoded& decoded);
// Whether a field of the event is as it shall be; false when it has none of that name.
bool isAsExpected(const FieldValue& expected, const phone::Event& event, const phone::Decoded& decoded);

// Requests and hub commands, each name once.
std::vector<std::string> commandNames();
// Ways to the controller, "hub-registers" among them, and shipped modules.
std::vector<std::string> knownPlaces();

// Reads an [[expect]] entry: an expectation for each thing that it states. Throws as TableReader does.
std::vector<Expectation> readExpectations(phone::TableReader& table, double durationS);

}  // namespace oisctl
