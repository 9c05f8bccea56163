#pragma once
// What the simulated controller keeps without power, in a folder between two runs of the tool:
//   state.toml  the state, written whole when it changed and then put in the place of the one before
//   lock        held by the run that uses it

#include <filesystem>
#include <string>

#include "controllers/kept.h"
#include "modules/module_description.h"
#include "phone.h"
#include "session/settings.h"

namespace oisctl {

class KeptState {
  public:
    // Gives the module's controller on `phone` what the folder has; a folder that is empty, or not there yet,
    // has nothing. Throws InputError: another run uses it, it is of another module, or cannot be read.
    KeptState(const Settings& settings, const phone::ModuleDescription& module, phone::Phone& phone);
    ~KeptState();
    KeptState(const KeptState&) = delete;
    KeptState& operator=(const KeptState&) = delete;

    // Writes what changed since, if anything did.
    void keep();
    // The same at the end. Throws JobError when what changed could not be written.
    void finish();

  private:
    const std::filesystem::path mFolder;
    const int32_t mSensorDev;
    const std::string mModule;
    phone::Phone& mPhone;
    phone::KeptByController mKept;  // as the file has it
    bool mWritten = true;           // all that changed
    int mLock = -1;
};

}  // namespace oisctl
