#include "device/probe_report.h"

#include <fmt/format.h>

#include "base/suggest.h"
#include "base/units.h"
#include "device/way_end.h"
#include "kernel/media_graph.h"

namespace oisctl {

namespace {

using Candidates = std::vector<Candidate>;
using Devices = std::vector<WalkedDevice>;

Value errorValue(int error) {
    return error == 0 ? Value() : phone::errorName(error);
}

Value unless(const std::string& text) {
    return text.empty() ? Value() : text;
}

std::string typeName(uint32_t type) {
    constexpr std::pair<uint32_t, const char*> kNames[] = {{phone::kSubDeviceEntityType, "sub-device"},
                                                           {phone::kSensorEntityType, "sensor"},
                                                           {0x20002, "flash"},
                                                           {phone::kLensEntityType, "lens"},
                                                           {phone::kVideoNodeEntityType, "video node"}};
    const auto* const found = std::ranges::find(kNames, type, &std::pair<uint32_t, const char*>::first);
    return found != std::end(kNames) ? found->second : fmt::format("0x{:x}", type);
}

std::string rightsText(const NodeRights& rights) {
    return rights.mode.empty() ? "" : fmt::format("{} {}:{}", rights.mode, rights.owner, rights.group);
}

// Media devices.

std::string deviceState(const WalkedDevice& device, DeviceFate fate) {
    const int error = device.openError != 0 ? device.openError : device.infoError;
    std::string text(wordsFor(fate));
    return error == 0 ? text : fmt::format("{}: {}", text, phone::errorText(error));
}

// Of its entities, for programs; the text has a table for those of all devices.
Table entityRecords(const WalkedDevice& device);

Record rightsFields(const NodeRights& rights) {
    return {{"mode", "", unless(rights.mode)},
            {"owner", "", unless(rights.owner)},
            {"group", "", unless(rights.group)}};
}

// `real`: there are nodes on this machine.
Table deviceTable(const Devices& devices, const DriverChoice& choice, bool real) {
    Table table;
    for (size_t i = 0; i < devices.size(); ++i) {
        const WalkedDevice& device = devices[i];
        const bool walked = choice.devices[i] == DeviceFate::kWalked;
        const NodeRights rights = real ? rightsOf(device.path) : NodeRights{};
        table.push_back({{"path", "media device", device.path, {}, Style::kName},
                         {"model", "model", unless(device.model)},
                         {"driver", "driver", unless(device.driver)},
                         {"bus", "", unless(device.bus)},
                         {"", real ? "rights" : "", unless(rightsText(rights))},
                         {"open_error", "", errorValue(device.openError)},
                         {"info_error", "", errorValue(device.infoError)},
                         {"entities_error", "", errorValue(device.entitiesError)},
                         {"walked", "the driver", walked, deviceState(device, choice.devices[i]),
                          walked ? Style::kGood : Style::kPlain},
                         {"entities", "", entityRecords(device)}});
        const Record fields = rightsFields(rights);
        table.back().insert(table.back().end(), fields.begin(), fields.end());
    }
    return table;
}

// Entities.

std::string nameOf(const WalkedDevice& device, uint32_t id) {
    const auto found = std::ranges::find(device.entities, id, &WalkedEntity::id);
    return found != device.entities.end() ? found->name : std::to_string(id);
}

std::string linkText(const WalkedDevice& device, const WalkedEntity& entity) {
    if (entity.padsError != 0) return phone::errorText(entity.padsError);
    std::vector<std::string> links;
    for (const WalkedLink& link : entity.links)
        links.push_back(
            fmt::format("{} -> {}:{}", link.sourcePad, nameOf(device, link.sinkEntity), link.sinkPad));
    return joined(links);
}

Table entityRecords(const WalkedDevice& device) {
    Table table;
    for (const WalkedEntity& entity : device.entities) {
        Table pads;
        for (const WalkedPad& pad : entity.pads)
            pads.push_back({{"index", "", pad.index}, {"flags", "", pad.flags}});
        Table links;
        for (const WalkedLink& link : entity.links) {
            links.push_back({{"pad", "", link.sourcePad},
                             {"sink", "", link.sinkEntity},
                             {"sink_pad", "", link.sinkPad},
                             {"flags", "", link.flags}});
        }
        table.push_back({{"id", "", entity.id},
                         {"name", "", entity.name},
                         {"type", "", entity.type},
                         {"major", "", entity.major},
                         {"minor", "", entity.minor},
                         {"node", "", unless(entity.node)},
                         {"link_error", "", errorValue(entity.linkError)},
                         {"pads", "", pads},
                         {"links", "", links},
                         {"pads_error", "", errorValue(entity.padsError)}});
    }
    return table;
}

// What becomes of an entity: whose lens it is, or why it is nobody's.
std::string entityState(size_t device, size_t entity, const Candidates& candidates) {
    std::vector<std::string> takers;
    EntityFate fate = EntityFate::kOtherName;
    for (const Candidate& candidate : candidates) {
        const EntityFate now = candidate.choice.entities[device][entity];
        if (now == EntityFate::kTaken) takers.push_back(candidate.module.name);
        if (now != EntityFate::kOtherName) fate = now;  // that of another name says less
    }
    return takers.empty() ? std::string(wordsFor(fate)) : "takes it for " + joined(takers);
}

Table entityTable(const Devices& devices, const Candidates& candidates) {
    const auto hasLinks = [](const WalkedEntity& entity) {
        return !entity.links.empty() || entity.padsError != 0;
    };
    const bool anyLinks = std::ranges::any_of(
        devices, [&](const WalkedDevice& device) { return std::ranges::any_of(device.entities, hasLinks); });
    Table table;
    for (size_t d = 0; d < devices.size(); ++d) {
        for (size_t e = 0; e < devices[d].entities.size(); ++e) {
            const WalkedEntity& entity = devices[d].entities[e];
            const bool taken = std::ranges::any_of(
                candidates, [&](const Candidate& candidate) { return candidate.entity() == &entity; });
            const bool hasNode = entity.major != 0 || entity.minor != 0;
            const std::string broken = hasNode ? phone::errorText(entity.linkError) : "";
            table.push_back({{"", "of", devices[d].path},
                             {"", "id", entity.id},
                             {"", "entity", entity.name, {}, Style::kName},
                             {"", "type", typeName(entity.type)},
                             {"", "node", unless(entity.linkError == 0 ? entity.node : broken)},
                             {"", anyLinks ? "links" : "", unless(linkText(devices[d], entity))},
                             {"",
                              "the driver",
                              entityState(d, e, candidates),
                              {},
                              taken ? Style::kGood : Style::kPlain}});
        }
    }
    return table;
}

// A lens and its answers.

std::string fieldText(std::string_view name, std::string_view value) {
    return fmt::format("{}={}", name, value);
}

// Fields that a line has room for; the JSON has them all.
std::string answerText(const LensAnswer& answer) {
    if (answer.error != 0) return phone::errorText(answer.error);
    if (answer.request->code == ois::code(ois::Request::kReadFlash) && answer.flash == FlashAnswer::kNone)
        return "nothing came";
    const auto isExpected = [&](const phone::Field& field) {
        return std::ranges::find(answer.expected, field.name, &ExpectedField::name) != answer.expected.end();
    };
    std::vector<std::string> words;
    for (const phone::Field& field : answer.fields)
        if (isExpected(field)) words.push_back(fieldText(field.name, toText(field)));
    if (answer.flash == FlashAnswer::kInPlace) words.emplace_back("in place");
    if (answer.flash == FlashAnswer::kThroughPointer) words.emplace_back("through the pointer");
    return words.empty() ? "done" : joined(words, " ");
}

std::string expectedText(const LensAnswer& answer) {
    std::vector<std::string> words;
    for (const ExpectedField& field : answer.expected) {
        const auto layout =
            std::ranges::find(answer.request->record->fields, field.name, &phone::RecordField::name);
        const std::string least = layout->type == phone::FieldType::kHex
                                      ? fmt::format("0x{:x}", static_cast<uint64_t>(field.least))
                                      : phone::numberText(field.least);
        const bool exact = field.least == field.greatest;
        words.push_back(fieldText(
            field.name, exact ? least : fmt::format("{}..{}", least, phone::numberText(field.greatest))));
    }
    return joined(words, " ");
}

std::string descriptionText(const LensAnswer& answer) {
    if (answer.expected.empty()) return "-";
    return answer.asExpected() ? "agrees" : expectedText(answer);
}

std::string_view flashWord(FlashAnswer flash) {
    return flash == FlashAnswer::kInPlace ? "in place" : "through the pointer";
}

Table requestTable(const Candidate& candidate) {
    Table table;
    for (const LensAnswer& answer : candidate.lens.answers) {
        Table fields;
        for (const phone::Field& field : answer.fields)
            fields.push_back(
                {{"name", "", field.name},
                 {"value", "", std::visit([](const auto& value) { return Value(value); }, field.value)}});
        Table expected;
        for (const ExpectedField& field : answer.expected)
            expected.push_back(
                {{"name", "", field.name}, {"least", "", field.least}, {"greatest", "", field.greatest}});
        const bool met = answer.asExpected();
        const bool asDescribed = met || answer.error != 0;
        table.push_back(
            {{"request", "request", answer.request->name, {}, Style::kName},
             {"time_us", "time", answer.timeUs, duration(static_cast<double>(answer.timeUs) * kSecondsPerUs)},
             {"error", "", errorValue(answer.error)},
             {"flash_came", "", answer.flash == FlashAnswer::kNone ? Value() : flashWord(answer.flash)},
             {"answer", "", fields},
             {"expected", "", expected},
             {"as_expected", "", answer.error == 0 ? Value(met) : Value()},
             {"", "answer", answerText(answer), {}, answer.error == 0 ? Style::kPlain : Style::kBad},
             {"",
              "the module's description",
              descriptionText(answer),
              {},
              asDescribed ? Style::kPlain : Style::kWarning}});
    }
    return table;
}

// Why the driver takes none: a lens of that name that it cannot take, or where its way ends.
std::string reasonForNone(const Candidate& candidate, const Devices& devices, const WayEnd& end) {
    for (size_t d = 0; d < devices.size(); ++d) {
        for (size_t e = 0; e < devices[d].entities.size(); ++e) {
            const WalkedEntity& entity = devices[d].entities[e];
            if (entity.type == phone::kLensEntityType && entity.name.starts_with(candidate.module.driverName))
                return fmt::format("{}: {}", entity.name, wordsFor(candidate.choice.entities[d][e]));
        }
    }
    return std::string(keyOf(end.place));
}

Table moduleTable(const Candidates& candidates, const Devices& devices) {
    Table table;
    for (const Candidate& candidate : candidates) {
        const WalkedEntity* const entity = candidate.entity();
        const bool taken = entity != nullptr;
        const WayEnd end = endOf(devices, candidate.module.driverName);
        table.push_back({{"module", "module", candidate.module.name, {}, Style::kName},
                         {"driver_name", "lens begins with", candidate.module.driverName},
                         {"entity", "the driver takes", taken ? Value(entity->name) : Value(),
                          taken ? "" : "none: " + reasonForNone(candidate, devices, end)},
                         {"node", "node", taken ? Value(entity->node) : Value()},
                         {"open_error", "", errorValue(candidate.lens.openError)},
                         {"way_end", "", taken ? Value() : Value(keyOf(end.place))},
                         {"requests", "", requestTable(candidate)},
                         {"usable", "", candidate.usable()}});
        const Record rights = rightsFields(candidate.rights);
        table.back().insert(table.back().end(), rights.begin(), rights.end());
    }
    return table;
}

void showLens(const Candidate& candidate) {
    const WalkedEntity& lens = *candidate.entity();
    const std::string rights = rightsText(candidate.rights);
    printLine();
    printLine(
        styled(Style::kBold, fmt::format("{}, {}{}, asked as {}", lens.name, lens.node,
                                         rights.empty() ? "" : " (" + rights + ")", candidate.module.name)));
    if (candidate.lens.openError == 0) print({{"", "", requestTable(candidate)}}, false);
}

// What a lens is worth, in a line or two.
std::string verdictOn(const Candidate& candidate) {
    const WalkedEntity& lens = *candidate.entity();
    if (candidate.lens.openError != 0) {
        const WayText text = textOf({EndPlace::kNode, {lens.node, candidate.lens.openError}, {}, {}});
        return text.what + "\n" + text.advice;
    }
    std::vector<std::string> failed;
    std::vector<std::string> other;
    for (const LensAnswer& answer : candidate.lens.answers) {
        if (answer.error != 0) {
            failed.emplace_back(answer.request->name);
        } else if (!answer.asExpected()) {
            other.emplace_back(answer.request->name);
        }
    }
    std::string text = candidate.module.name + ": ";
    text += failed.empty() ? "every request was answered" : "not answered: " + joined(failed);
    if (!other.empty()) text += "; not as the module is described: " + joined(other);
    return text;
}

// Where the ways to all of them end: at a lens that one of them nearly has, if there is one.
WayEnd endOf(const Probe& probe) {
    for (const Candidate& candidate : probe.candidates) {
        WayEnd end = endOf(probe.devices, candidate.module.driverName);
        if (end.place != EndPlace::kLensName) return end;
    }
    return endOf(seenIn(probe.devices), namesIn(probe.candidates, [](const Candidate& candidate) {
                     return candidate.module.driverName;
                 }));
}

}  // namespace

bool Probe::good() const {
    const auto isTaken = [](const Candidate& candidate) { return candidate.entity() != nullptr; };
    return std::ranges::any_of(candidates, isTaken) &&
           std::ranges::all_of(candidates, [&](const Candidate& candidate) {
               return !isTaken(candidate) || candidate.usable();
           });
}

Record recordOf(const Probe& probe) {
    return {{"kernel", "", probe.realKernel ? "real" : "simulated"},
            {"devices", "", deviceTable(probe.devices, probe.candidates.front().choice, probe.realKernel)},
            {"modules", "", moduleTable(probe.candidates, probe.devices)},
            {"good", "", probe.good()}};
}

void show(const Probe& probe) {
    if (!probe.devices.empty()) {
        print({{"", "", deviceTable(probe.devices, probe.candidates.front().choice, probe.realKernel)}},
              false);
        printLine();
        print({{"", "", entityTable(probe.devices, probe.candidates)}}, false);
        printLine();
        print({{"", "", moduleTable(probe.candidates, probe.devices)}}, false);
    }
    std::vector<std::string> verdicts;
    for (const Candidate& candidate : probe.candidates) {
        if (candidate.entity() == nullptr) continue;
        showLens(candidate);
        verdicts.push_back(verdictOn(candidate));
    }
    if (verdicts.empty()) {
        const WayText text = textOf(endOf(probe));
        verdicts = {text.what, text.advice};
    }
    printLine();
    print({{"",
            probe.good() ? "usable" : "not usable",
            {},
            joined(verdicts, "\n"),
            probe.good() ? Style::kGood : Style::kBad}},
          false);
}

}  // namespace oisctl
