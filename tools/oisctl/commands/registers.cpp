// oisctl registers: the register map of the chip behind the hub, with values.

#include <fmt/format.h>

#include <bit>
#include <memory>

#include "base/errors.h"
#include "base/interrupt.h"
#include "base/number.h"
#include "base/suggest.h"
#include "base/units.h"
#include "commands/commands.h"
#include "session/driver_session.h"
#include "session/register_access.h"
#include "session/summary.h"
#include "trace/decode.h"

namespace oisctl {

namespace {

constexpr unsigned kBitsPerByte = 8;

struct Write {
    const phone::RegisterInfo* reg;
    uint32_t value;
};

struct RegistersOptions {
    Settings settings;
    bool watch = false;
    double intervalS = 0.5;
    std::optional<double> seconds;
    std::vector<Write> writes;
};

Value valueOf(const phone::RegisterInfo& reg, uint32_t bits) {
    if (reg.format == phone::FieldType::kFloat) return std::bit_cast<float>(bits);
    if (reg.format == phone::FieldType::kSigned) return static_cast<int16_t>(bits);
    return bits;
}

std::string valueText(const phone::RegisterInfo& reg, std::optional<uint32_t> read) {
    if (!read) return "-";
    const uint32_t bits = *read;
    switch (reg.format) {
        case phone::FieldType::kFloat:
            return figure(std::bit_cast<float>(bits), 3);
        case phone::FieldType::kSigned:
            return fmt::to_string(static_cast<int16_t>(bits));
        case phone::FieldType::kHex:
            return fmt::format("0x{:0{}X}", bits, reg.size * 2);
        default:
            return fmt::to_string(bits);
    }
}

std::vector<std::string> registerNames() {
    return namesIn(phone::registers(), &phone::RegisterInfo::name);
}

std::vector<std::string> registerWords() {
    return namesIn(registerNames(), [](const std::string& name) { return name + '='; });
}

// "STABILISATION_MODE=5", "0x0588=1200.0"
Write parseWrite(const std::string& text) {
    const auto refuse = [&text](const std::string& why) { return InputError(text + ": " + why); };
    const size_t equals = text.find('=');
    if (equals == std::string::npos) throw refuse("write REGISTER=VALUE, as in STABILISATION_MODE=5");
    const std::string name = text.substr(0, equals);
    const phone::RegisterInfo* reg = phone::findRegister(name);
    if (const auto address = numberOf<uint32_t>(name); reg == nullptr && address)
        reg = phone::findRegister(*address);
    if (reg == nullptr) throw refuse("no such register" + suggestion(name, registerNames()));
    const std::string value = text.substr(equals + 1);
    if (reg->format == phone::FieldType::kFloat) {
        if (const auto number = numberOf<float>(value)) return {reg, std::bit_cast<uint32_t>(*number)};
    } else if (const auto number = numberOf<int64_t>(value)) {
        const auto end = int64_t{1} << (kBitsPerByte * reg->size);
        const int64_t least = reg->format == phone::FieldType::kSigned ? -end / 2 : 0;
        if (*number >= least && *number < end) return {reg, static_cast<uint32_t>(*number)};
        throw refuse(fmt::format("the register holds {} to {}", least, end - 1));
    }
    throw refuse(fmt::format("'{}' is no number that it can hold", value));
}

// What the registers hold, in their order; empty where a read did not get through.
using Values = std::vector<std::optional<uint32_t>>;

Values readAll(DriverSession& session) {
    Values values;
    for (const phone::RegisterInfo& reg : phone::registers()) {
        values.push_back(readRegister(session, reg.address, static_cast<uint32_t>(reg.size)));
    }
    return values;
}

// Values that are not as they were before stand out.
Field report(const Values& values, const Values& before) {
    Table table;
    for (size_t i = 0; i < values.size(); ++i) {
        const phone::RegisterInfo& reg = phone::registers()[i];
        const bool changed = !before.empty() && values[i] != before[i];
        table.push_back({{"address", "address", reg.address, fmt::format("0x{:04X}", reg.address)},
                         {"name", "register", reg.name, "", Style::kName},
                         {"bytes", "bytes", reg.size},
                         {"value", "value", values[i] ? valueOf(reg, *values[i]) : Value(),
                          valueText(reg, values[i]), changed ? Style::kWarning : Style::kPlain},
                         {"bits", "", values[i] ? Value(*values[i]) : Value()},
                         {"meaning", "meaning", reg.meaning}});
    }
    return {"registers", "", table};
}

void printChanges(DriverSession& session, const Values& values, const Values& before) {
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] == before[i]) continue;
        const phone::RegisterInfo& reg = phone::registers()[i];
        printLine(fmt::format("{}  {} {} -> {}", styled(Style::kDim, figure(session.nowS(), 3, " s")),
                              styled(Style::kName, reg.name), valueText(reg, before[i]),
                              styled(Style::kWarning, valueText(reg, values[i]))));
    }
}

// The last values.
Values watch(DriverSession& session, const RegistersOptions& options, Values before) {
    const double endS = session.nowS() + options.seconds.value_or(0);
    while (!interrupted() && (!options.seconds || session.nowS() < endS)) {
        session.sleepUs(static_cast<int64_t>(options.intervalS * kMicrosPerSecond));
        Values values = readAll(session);
        if (options.settings.json) {
            print({{"time_s", "", session.nowS()}, report(values, before)}, true);
        } else {
            printChanges(session, values, before);
        }
        before = std::move(values);
    }
    return before;
}

int runRegisters(RegistersOptions options) {
    // Somebody watches: the time is theirs, unless an end is given.
    if (options.watch && !options.seconds) options.settings.realTime = true;
    options.watch = options.watch || options.seconds;
    DriverSession session(options.settings, Narration::kNothing);
    session.requireModule("registers", "behind the sensor hub", onHub);
    if (!session.openFor()) return conclude(session, Record());
    Values before;
    if (!options.writes.empty()) before = readAll(session);
    for (const Write& write : options.writes) {
        writeRegister(session, write.reg->address, static_cast<uint32_t>(write.reg->size), write.value);
    }
    Values values = readAll(session);
    for (const Write& write : options.writes) {
        const auto held = values[static_cast<size_t>(write.reg - phone::registers().data())];
        if (held && *held != write.value) {
            printRemark(fmt::format("oisctl: --write {}: the register holds {} now", write.reg->name,
                                    valueText(*write.reg, held)));
        }
    }
    Record shown{report(values, before)};
    if (options.watch) {
        print({{"time_s", "", session.nowS()}, shown.front()}, options.settings.json);
        shown = {report(watch(session, options, std::move(values)), {})};
    }
    session.close();
    if (options.watch && !options.settings.json) shown.clear();  // the text showed every change
    return conclude(session, shown, Ending::kRemarks);
}

}  // namespace

Command describeRegisters() {
    auto options = std::make_shared<RegistersOptions>();
    return {
        .options = withPhoneOptions(
            {flag("-w,--watch", "Go on, and show what changes, until Ctrl-C", &options->watch),
             value("--interval", "S", "Seconds between two looks", &options->intervalS,
                   {.range = Range{0.001, 3600}}),
             value("--seconds", "S", "Watch for so many seconds", &options->seconds,
                   {.range = Range{0, 86400}}),
             value("-W,--write", "REGISTER=VALUE", "Write a register first; repeatable",
                   [options](const std::string& word) { options->writes.push_back(parseWrite(word)); },
                   {.words = registerWords, .repeats = true})},
            options->settings),
        .examples = {{"oisctl registers", "every register by name"},
                     {"oisctl registers --write STABILISATION_MODE=16"},
                     {"oisctl registers --write CONTROL=0 --seconds 0.1 --interval 0.004",
                      "how it becomes idle"},
                     {"oisctl registers --json | jq '.registers[] | select(.name==\"CLOCK\").value'"}},
        .run = [options] { return runRegisters(*options); },
    };
}

}  // namespace oisctl
