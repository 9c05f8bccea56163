#pragma once
// The folders of the phone's file system that the driver opens files in, and what stands for them on this
// machine.

#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace phone {

class Clock;
struct PhoneOptions;

inline constexpr std::string_view kDumpFolder = "/mnt/vendor/nvcfg/camera";
inline constexpr std::string_view kThermalFolder = "/sys/cam_thermal";
inline constexpr std::string_view kThermalFile = "/sys/cam_thermal/cam_thermal_sensor0";

// What the thermal sensor shows at a moment of the phone's clock.
struct ThermalPoint {
    double timeS = 0;
    double degC = 0;
};

// Thread-safe.
class FileTree {
  public:
    // Creates the folders. With the real kernel only those that the options name; the other paths stay the
    // machine's. Throws std::runtime_error when a folder cannot be created.
    FileTree(const Clock& clock, const PhoneOptions& options);
    // Removes the folder when it was a temporary one.
    ~FileTree();
    FileTree(const FileTree&) = delete;
    FileTree& operator=(const FileTree&) = delete;

    // What stands for kDumpFolder on this machine. Tests may remove it: the driver creates no folder.
    const std::filesystem::path& dumpFolder() const { return mDumpFolder; }
    // What stands for kThermalFile on this machine.
    std::filesystem::path thermalFile() const;

    // The thermal sensor's file, from its next opening on. It shows 30 degrees from the start, unless the
    // options name a thermal folder, whose file is then taken as it is. These throw std::runtime_error when
    // the file is the machine's own.
    void setThermal(std::string text);
    void setThermalAbsent();
    // Exists, but opening it fails with EACCES, for root too.
    void setThermalUnreadable();
    // Whole degrees, interpolated between the points, held before the first and after the last. Throws
    // std::invalid_argument without a point or when times do not ascend.
    void setThermalCurve(std::vector<ThermalPoint> points);

    // For the interposed fopen (kernel/kernel.cpp).
    struct Place {
        std::filesystem::path file;  // on this machine
        int error = 0;               // errno that opening it fails with, or 0
    };
    // Where `path` lies; nullopt when it is not in a folder of the phone. Brings the thermal file up to date.
    std::optional<Place> place(std::string_view path);

  private:
    struct Absent {};
    struct Unreadable {};
    struct AsItIs {};
    using Thermal = std::variant<AsItIs, std::string, Absent, Unreadable, std::vector<ThermalPoint>>;

    void setThermalState(Thermal state);
    int refreshThermal();

    const Clock& mClock;
    bool mTemporary = false;
    std::filesystem::path mRoot;
    std::filesystem::path mDumpFolder = kDumpFolder;
    std::filesystem::path mThermalFolder = kThermalFolder;
    std::mutex mMutex;
    Thermal mThermal;
    std::string mThermalShown;  // what the file was last given
};

}  // namespace phone
