// oisctl dump otp|flash: the driver's dump files.

#include <algorithm>
#include <memory>

#include "base/errors.h"
#include "base/file_content.h"
#include "base/terminal.h"
#include "commands/commands.h"
#include "session/driver_session.h"
#include "session/dump_files.h"
#include "session/summary.h"

namespace oisctl {

namespace {

struct DumpOptions {
    Settings settings;
    std::string what;
    std::string folder;  // empty: standard output
};

Record report(const std::optional<std::filesystem::path>& file, const DumpOptions& options) {
    const bool kept = !options.folder.empty();
    if (!file && kept) return {{"file", "file", {}, "none"}};
    if (!file) return {{"file", "", {}}, {"text", "", {}}};
    if (kept) return {{"file", "file", keepFile(*file, options.folder).string()}};
    std::string text = phone::readFile(*file);
    if (!options.settings.json) {
        if (text.ends_with('\n')) text.pop_back();
        printLine(text);
    }
    return {{"file", "", file->filename().string()}, {"text", "", text}};
}

// The 3A layer reads the memory and hands the driver a copy, which it dumps.
void dumpOtp(DriverSession& session) {
    ois_otp_data otp{};
    const std::vector<uint8_t>& image = session.module().otpImage;
    std::copy_n(image.begin(), std::min(image.size(), sizeof otp.image), otp.image);
    session.call(
        "GetOisOtpData", {},
        [&] {
            session.driver().GetOisOtpData(&otp);
            return 0;
        },
        bytesOf(otp));
}

// The driver has no request that reads the memory: the tool stands in for the 3A layer, with the
// description's image.
void requireMemory(const DriverSession& session) {
    if (!session.onDevice()) return;
    throw InputError(
        "dump otp: cannot be read from a real controller: no request asks for it, and what would be shown is "
        "the image in the module's description");
}

int runDump(DumpOptions options) {
    const bool otp = options.what == "otp";
    if (!options.folder.empty()) requireFolder(options.folder);
    options.settings.properties.push_back(
        phone::knownProperty("dump", std::to_string(otp ? kDumpOtp : kDumpFlash)));
    DriverSession session(options.settings, Narration::kIfVerbose);
    if (otp) {
        session.requireModule("dump otp", "with OIS", hasOis);
        requireMemory(session);
    } else {
        session.requireModule("dump flash", "on a sub-device", onSubDevice);
    }
    if (!session.openFor()) return conclude(session, Record());  // dumps the flash
    if (otp) dumpOtp(session);
    session.close();
    const Record shown = report(dumpFile(session, otp ? "_otp.txt" : "_flash.txt"), options);
    return conclude(session, shown, options.folder.empty() ? Ending::kRemarks : Ending::kReport);
}

}  // namespace

Command describeDump() {
    auto options = std::make_shared<DumpOptions>();
    options->settings.simulatedModule = "dw9786";
    return {
        .options = withPhoneOptions(
            {value("what", "otp|flash", "Which of them", &options->what,
                   {.choices = {"otp", "flash"}, .required = true}),
             value("-o,--output", "DIR", "Folder to keep the file in; else it is shown", &options->folder)},
            options->settings),
        .examples = {{"oisctl dump otp -m korvas4sw-hub"}, {"oisctl dump flash -m dw9786 -o out"}},
        .run = [options] { return runDump(*options); },
    };
}

}  // namespace oisctl
