// oisctl compliance: checks of the kernel side, for whoever writes it.

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "base/errors.h"
#include "base/interrupt.h"
#include "base/junit.h"
#include "base/suggest.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "compliance/examination.h"
#include "device/driver_choice.h"
#include "device/way_end.h"
#include "phone.h"
#include "session/chosen_module.h"
#include "session/settings.h"
#include "session/trace_output.h"

namespace oisctl {

namespace {

constexpr int32_t kSensor = 0;  // where the simulated phone has its module

struct ComplianceOptions {
    Settings settings;
    std::string node;
    std::string junit;
};

struct Shown {
    const char* key;
    const char* text;
    Style style;
    JunitCase::Outcome outcome;
};

Shown shown(Finding::Verdict verdict) {
    switch (verdict) {
        case Finding::Verdict::kOk:
            return {"ok", "OK", Style::kGood, JunitCase::Outcome::kPassed};
        case Finding::Verdict::kFailed:
            return {"failed", "FAIL", Style::kBad, JunitCase::Outcome::kFailed};
        case Finding::Verdict::kNotAsked:
            break;
    }
    return {"not asked", "NOT ASKED", Style::kDim, JunitCase::Outcome::kSkipped};
}

std::string sentence(const Finding& finding) {
    if (finding.verdict != Finding::Verdict::kFailed) return finding.seen;
    return fmt::format("{}; expected {}", finding.seen, finding.expected);
}

int64_t count(const std::vector<Result>& results, Finding::Verdict verdict) {
    return std::ranges::count(results, verdict, [](const Result& result) { return result.finding.verdict; });
}

Field total(const char* key, const char* label, int64_t number, Style style) {
    return {key, label, number, {}, number == 0 ? Style::kPlain : style};
}

// A table a group for people, one list for programs.
Record report(const Subject& subject, bool realKernel, const std::vector<Result>& results) {
    const auto unless = [](const std::string& text) { return text.empty() ? Value() : Value(text); };
    Record fields{{"kernel", "kernel", realKernel ? "real" : "simulated",
                   realKernel ? "this machine's own" : "simulated; --kernel real examines this machine's"},
                  {"node", "node", subject.node, {}, Style::kName},
                  {"module", "module", subject.module == nullptr ? Value() : Value(subject.module->name)}};
    Table all;
    Table* group = nullptr;
    std::vector<std::pair<std::string_view, Table>> groups;
    for (const Result& result : results) {
        const Finding& finding = result.finding;
        const Shown how = shown(finding.verdict);
        const bool asked = finding.verdict != Finding::Verdict::kNotAsked;
        all.push_back({{"group", "", result.group},
                       {"name", "", result.name},
                       {"verdict", "", how.key},
                       {"seen", "", asked ? unless(finding.seen) : Value()},
                       {"expected", "", unless(finding.expected)},
                       {"why_not", "", asked ? Value() : Value(finding.seen)}});
        if (groups.empty() || groups.back().first != result.group)
            group = &groups.emplace_back(result.group, Table()).second;
        group->push_back({{"", std::string(result.group), result.name},
                          {"", "verdict", how.text, {}, how.style},
                          {"", "what was seen", sentence(finding)}});
    }
    fields.push_back({"checks", "", all});
    for (auto& [name, table] : groups) fields.push_back({"", "", table});
    fields.push_back(total("ok", "OK", count(results, Finding::Verdict::kOk), Style::kGood));
    fields.push_back(total("failed", "FAIL", count(results, Finding::Verdict::kFailed), Style::kBad));
    fields.push_back(
        total("not_asked", "NOT ASKED", count(results, Finding::Verdict::kNotAsked), Style::kPlain));
    return fields;
}

std::vector<JunitCase> junitCases(const std::vector<Result>& results) {
    std::vector<JunitCase> cases;
    cases.reserve(results.size());
    for (const Result& result : results)
        cases.push_back({std::string(result.group), result.name, shown(result.finding.verdict).outcome,
                         sentence(result.finding)});
    return cases;
}

// As for any command; a node that is named needs none.
std::optional<phone::ModuleDescription> examinedModule(const ComplianceOptions& options) {
    const Settings& settings = options.settings;
    if (!options.node.empty() && !settings.realKernel) {
        throw InputError("--node " + options.node +
                         ": goes with --kernel real; on the simulated kernel it is the module's");
    }
    if (!options.node.empty() && settings.module.empty()) {
        phone::ModuleDescription unknown;
        unknown.name = options.node;
        requireMeaning(settings, unknown);
        return std::nullopt;
    }
    phone::ModuleDescription module = chosenModule(settings);
    requireMeaning(settings, module);
    if (onSubDevice(module)) return module;
    throw InputError(fmt::format("compliance: {} is no module on a sub-device; these are: {}", module.name,
                                 joined(namesIn(shippedOnSubDevice(), &phone::ModuleDescription::name))));
}

// Throws JobError that says where the way ended.
void endAt(const WayEnd& end) {
    const WayText text = textOf(end);
    throw JobError(fmt::format("{}; {}", text.what, text.advice));
}

std::string examinedNode(const ComplianceOptions& options,
                         const std::optional<phone::ModuleDescription>& module) {
    if (!options.node.empty()) return options.node;
    const std::vector<WalkedDevice> devices = walkMedia();
    const WalkedEntity* const entity = choiceOf(devices, module->driverName).entity;
    if (entity == nullptr) endAt(endOf(devices, module->driverName));
    return entity->node;
}

// Once here rather than in every check.
void requireOpening(const std::string& node) {
    const int error = openErrorOf(node);
    if (error == 0) return;
    if (error == ENOENT) throw JobError(node + ": there is no such node");
    endAt({.place = EndPlace::kNode, .step = {node, error}});
}

int runCompliance(const ComplianceOptions& options) {
    const Settings& settings = options.settings;
    const InterruptGuard interruptGuard;
    TraceOutput trace(settings, Narration::kNothing);
    phone::PhoneOptions setup = phoneSetup(settings);
    setup.trace = settings.traceWanted;
    phone::Phone phone(setup);
    trace.begin({});
    phone.trace().setKeep(false);
    phone.trace().setListener([&trace](const phone::Event& event) { trace.show(event, std::nullopt); });
    const std::optional<phone::ModuleDescription> module = examinedModule(options);
    if (module) phone.fit(kSensor, *module);
    JunitFile junit(options.junit);
    const char* const suite =
        settings.realKernel ? "oisctl compliance" : "oisctl compliance, simulated kernel";
    Subject subject{{}, module ? &*module : nullptr, settings.allowWrite};
    try {
        subject.node = examinedNode(options, module);
        requireOpening(subject.node);
    } catch (const JobError& error) {
        junit.write(suite, {{"node", "can be reached", JunitCase::Outcome::kFailed, error.what()}});
        throw;
    }
    for (const phone::Fault& fault : settings.faults) phone.faults().add(fault);
    std::vector<Result> results;
    {
        Progress progress("compliance", 1);
        results = examine(subject, [&progress](size_t done, size_t all) {
            progress.update(static_cast<double>(done) / static_cast<double>(all));
        });
    }
    phone.trace().setListener(nullptr);
    trace.finish();
    junit.write(suite, junitCases(results));
    const bool good = count(results, Finding::Verdict::kFailed) == 0;
    Record fields = report(subject, settings.realKernel, results);
    fields.push_back({"good", "", good});
    fields.push_back({"interrupted", "", interrupted()});
    print(fields, settings.json);
    if (interrupted() && !outputClosed()) printRemark("oisctl: a signal came before the end");
    return good ? kSuccess : kJobFailed;
}

}  // namespace

Command describeCompliance() {
    auto options = std::make_shared<ComplianceOptions>();
    options->settings.simulatedModule = shippedOnSubDevice().front().name;
    return {
        .options = withSomePhoneOptions(
            {value("--node", "PATH",
                   "The lens's node; else the one that the media graph shows for the module", &options->node),
             flag("--allow-write",
                  "Also send what changes calibration or keeps it: gyro offset, gains, firmware",
                  &options->settings.allowWrite),
             value("--junit", "FILE", "Write the results as JUnit XML too", &options->junit)},
            options->settings, {"--module", "--kernel", "--fault", "--real-time", "--trace", "--json"}),
        .notes =
            "Exit status 0: no check failed. At the end stabilisation is off and no target held, also after "
            "a\n"
            "signal. What the checks mean stands in docs/porting.md.\n",
        .examples = {{"oisctl compliance", "the simulated kernel"},
                     {"oisctl compliance --kernel real -m dw9786", "this machine's own sub-device"},
                     {"oisctl compliance --kernel real --node /dev/v4l-subdev3 --allow-write",
                      "gains are written, read and put back"},
                     {"oisctl compliance --fault READ_STATUS:garbage=00", "a check that fails"},
                     {"oisctl compliance --json --junit compliance.xml"}},
        .run = [options] { return runCompliance(*options); },
    };
}

}  // namespace oisctl
