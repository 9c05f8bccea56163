#include "kernel/file_tree.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "phone.h"
#include "time/clock.h"

namespace phone {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kThermalDefault = "30\n";
constexpr double kMicrosecondsPerSecond = 1e6;

fs::path makeTemporaryFolder() {
    std::error_code error;
    const fs::path parent = fs::temp_directory_path(error);
    if (error) throw std::runtime_error("TMPDIR names no folder for temporary files: " + error.message());
    std::string pattern = (parent / "ois-phone-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary folder " + pattern + ": " + std::strerror(errno));
    }
    return pattern;
}

void createFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw std::runtime_error("cannot create the phone's folder " + folder.string() + ": " +
                                 error.message());
    }
}

bool isInside(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && path.size() > folder.size() && path[folder.size()] == '/';
}

double temperatureAt(const std::vector<ThermalPoint>& curve, double timeS) {
    if (timeS <= curve.front().timeS) return curve.front().degC;
    for (size_t i = 1; i < curve.size(); ++i) {
        const ThermalPoint& before = curve[i - 1];
        const ThermalPoint& after = curve[i];
        if (timeS > after.timeS) continue;
        return before.degC +
               (after.degC - before.degC) * (timeS - before.timeS) / (after.timeS - before.timeS);
    }
    return curve.back().degC;
}

}  // namespace

FileTree::FileTree(const Clock& clock, const PhoneOptions& options) : mClock(clock) {
    const bool simulated = options.kernel == KernelKind::kSimulated;
    if (simulated) {
        mTemporary = options.folder.empty();
        mRoot = mTemporary ? makeTemporaryFolder() : fs::absolute(options.folder);
    }
    const auto choose = [&](const fs::path& given, fs::path& folder) {
        if (!given.empty()) {
            folder = fs::absolute(given);
        } else if (simulated) {
            folder = mRoot / folder.relative_path();
        } else {
            return;
        }
        createFolder(folder);
    };
    choose(options.dumpFolder, mDumpFolder);
    choose(options.thermalFolder, mThermalFolder);
    if (options.thermalFolder.empty() && simulated) mThermal = std::string(kThermalDefault);
}

FileTree::~FileTree() {
    std::error_code ignored;
    if (mTemporary) fs::remove_all(mRoot, ignored);
}

fs::path FileTree::thermalFile() const {
    return mThermalFolder / fs::path(kThermalFile).filename();
}

void FileTree::setThermal(std::string text) {
    setThermalState(std::move(text));
}
void FileTree::setThermalAbsent() {
    setThermalState(Absent{});
}
void FileTree::setThermalUnreadable() {
    setThermalState(Unreadable{});
}

void FileTree::setThermalCurve(std::vector<ThermalPoint> points) {
    if (points.empty()) throw std::invalid_argument("a thermal curve needs at least one point");
    for (size_t i = 1; i < points.size(); ++i) {
        if (points[i].timeS > points[i - 1].timeS) continue;
        throw std::invalid_argument("thermal curve: point " + std::to_string(i + 1) +
                                    " is not later than the one before");
    }
    setThermalState(std::move(points));
}

void FileTree::setThermalState(Thermal state) {
    if (mThermalFolder == kThermalFolder) {
        throw std::runtime_error("the thermal sensor is this machine's own " + std::string(kThermalFile) +
                                 ": name a folder that stands for " + std::string(kThermalFolder));
    }
    const std::lock_guard lock(mMutex);
    mThermal = std::move(state);
    refreshThermal();
}

// Makes the file show what it should now. Returns the errno that opening it fails with, or 0.
int FileTree::refreshThermal() {
    std::string text;
    if (std::holds_alternative<AsItIs>(mThermal)) return 0;
    if (std::holds_alternative<Absent>(mThermal)) {
        std::error_code ignored;
        fs::remove(thermalFile(), ignored);
        return ENOENT;
    }
    if (const auto* curve = std::get_if<std::vector<ThermalPoint>>(&mThermal)) {
        const double timeS = static_cast<double>(mClock.nowUs()) / kMicrosecondsPerSecond;
        text = std::to_string(std::lround(temperatureAt(*curve, timeS))) + "\n";
    } else if (const auto* given = std::get_if<std::string>(&mThermal)) {
        text = *given;
    }
    std::error_code error;
    // Every request may come here, and a disk may be slow.
    if (text != mThermalShown || !fs::exists(thermalFile(), error)) {
        // A reader that has the file open keeps the old one.
        fs::path fresh = thermalFile();
        fresh += ".new";
        std::ofstream(fresh, std::ios::binary) << text;
        fs::rename(fresh, thermalFile(), error);
        if (error) return error.value();
        mThermalShown = text;
    }
    return std::holds_alternative<Unreadable>(mThermal) ? EACCES : 0;
}

std::optional<FileTree::Place> FileTree::place(std::string_view path) {
    const auto redirect = [&](std::string_view from, const fs::path& to) -> std::optional<Place> {
        if (to == from || !isInside(path, from)) return std::nullopt;
        const fs::path inside = fs::path(path.substr(from.size() + 1)).lexically_normal();
        // Nothing outside the phone's folders is reached through them.
        if (!inside.empty() && *inside.begin() == "..") return Place{{}, ENOENT};
        return Place{to / inside, 0};
    };
    if (path == kThermalFile && mThermalFolder != kThermalFolder) {
        const std::lock_guard lock(mMutex);
        return Place{thermalFile(), refreshThermal()};
    }
    if (auto place = redirect(kDumpFolder, mDumpFolder)) return place;
    return redirect(kThermalFolder, mThermalFolder);
}

}  // namespace phone
