// oisctl probe: the first thing to run on a board. Which media devices, entities and nodes there are, which
// lens the driver takes for a module, and what that answers to requests that read.

#include <fmt/format.h>

#include <memory>

#include "base/errors.h"
#include "base/suggest.h"
#include "commands/commands.h"
#include "device/probe_report.h"
#include "faults/faults.h"
#include "phone.h"
#include "session/chosen_module.h"
#include "session/settings.h"
#include "session/trace_output.h"

namespace oisctl {

namespace {

using phone::ModuleDescription;

ModuleDescription namedModule(const std::string& name) {
    ModuleDescription module = asInput("--module: ", [&] { return phone::moduleByName(name); });
    if (onSubDevice(module)) return module;
    throw InputError(fmt::format("probe: {} is no module on a sub-device; these are: {}", module.name,
                                 joined(namesIn(shippedOnSubDevice(), &ModuleDescription::name))));
}

std::vector<Candidate> findLenses(const std::vector<ModuleDescription>& modules,
                                  const std::vector<WalkedDevice>& devices, const Settings& settings,
                                  phone::Clock& clock) {
    std::vector<Candidate> candidates;
    for (const ModuleDescription& module : modules) {
        Candidate& candidate =
            candidates.emplace_back(Candidate{module, choiceOf(devices, module.driverName), {}, {}});
        if (candidate.entity() == nullptr) continue;
        const std::string& node = candidate.entity()->node;
        if (settings.realKernel) candidate.rights = rightsOf(node);
        candidate.lens = askLens(node, module, clock);
    }
    return candidates;
}

int runProbe(const Settings& settings) {
    std::vector<ModuleDescription> modules = shippedOnSubDevice();
    if (!settings.module.empty()) modules = {namedModule(settings.module)};
    requireMeaning(settings, modules.front());
    TraceOutput trace(settings, Narration::kNothing);
    phone::PhoneOptions setup = phoneSetup(settings);
    setup.trace = settings.traceWanted;
    phone::Phone phone(setup);
    trace.begin({});
    phone.trace().setKeep(false);
    phone.trace().setListener([&trace](const phone::Event& event) { trace.show(event, std::nullopt); });
    if (!settings.realKernel)
        phone.fit(0, settings.module.empty() ? namedModule(settings.simulatedModule) : modules.front());
    for (const phone::Fault& fault : settings.faults) phone.faults().add(fault);

    Probe probe{.realKernel = settings.realKernel, .devices = walkMedia()};
    probe.candidates = findLenses(modules, probe.devices, settings, phone.clock());
    phone.trace().setListener(nullptr);
    trace.finish();
    settings.json ? print(recordOf(probe), true) : show(probe);
    return probe.good() ? kSuccess : kJobFailed;
}

}  // namespace

Command describeProbe() {
    auto settings = std::make_shared<Settings>();
    settings->realKernel = true;
    settings->simulatedModule = "dw9786";
    return {
        .options =
            withSomePhoneOptions({}, *settings, {"--module", "--kernel", "--fault", "--trace", "--json"}),
        .notes =
            "Nothing is written and the lens is not moved; only the node of a lens that the driver would "
            "take is\n"
            "opened. Exit status 0: there is a lens, and it answers every request.\n",
        .examples = {{"oisctl probe", "this machine's media devices, and a lens that a shipped module names"},
                     {"oisctl probe -m mine.toml", "beside a description of your own"},
                     {"oisctl probe --kernel simulated", "what it looks like when all is well"},
                     {"oisctl probe --json | jq '.modules[] | select(.usable).node'"}},
        .run = [settings] { return runProbe(*settings); },
    };
}

}  // namespace oisctl
