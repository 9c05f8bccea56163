#pragma once
// Which camera module a command runs on, and what the choice rules out.

#include "modules/module_description.h"
#include "session/settings.h"

namespace oisctl {

// The module that --module names, else the one that suits the command or, with the machine's own kernel, the
// one whose lens its media graph shows. Throws InputError when that shows several, JobError when none.
phone::ModuleDescription chosenModule(const Settings& settings);

// Throws InputError for an option that means nothing with this kernel and module.
void requireMeaning(const Settings& settings, const phone::ModuleDescription& module);
// The same of one fault.
void requireMeaning(const phone::Fault& fault, const Settings& settings,
                    const phone::ModuleDescription& module);

}  // namespace oisctl
