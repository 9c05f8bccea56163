// The phone's kernel side, called as a driver calls it: through libc's functions.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/media.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "access/controller_records.h"
#include "kernel/controller.h"
#include "kernel/file_tree.h"
#include "kernel/kernel.h"
#include "kernel/media_graph.h"
#include "modules/module_description.h"
#include "motion/motion.h"
#include "ois_drv.h"
#include "phone.h"

// What fortified code calls.
extern "C" int __open_2(const char* path, int flags);
extern "C" ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t bufferSize);

namespace {

namespace fs = std::filesystem;
using phone::FaultEffect;
using phone::FaultPoint;
using phone::Phone;
using phone::PhoneOptions;

constexpr const char* kDumpFile = "/mnt/vendor/nvcfg/camera/ois_dump_test.txt";
constexpr const char* kThermal = "/sys/cam_thermal/cam_thermal_sensor0";

phone::ModuleDescription lensModule(const std::string& driverName) {
    phone::ModuleDescription module;
    module.name = driverName;
    module.driverName = driverName;
    module.gain = {0, 0, 0.5F, 0.25F, 1000, 2000};
    module.hallInfo = {2040, 2050, 0x0D000C00, 0x03000200};
    module.stabiliser.hallCenterX = 2040;
    module.stabiliser.hallCenterY = 2050;
    module.stabiliser.hallNoiseCounts = 0;
    return module;
}

int setMode(int fd, int32_t mode) {
    return ioctl(fd, 0x400456C2U, &mode);
}

class KernelTest : public ::testing::Test {
  protected:
    explicit KernelTest(PhoneOptions options = {}) : phone(std::move(options)) {}

    // A sub-device with a lens of no special kind.
    int openLens() {
        phone.fit(0, lensModule("lens0"));
        const int fd = open(("/dev/" + phone::MediaGraph::lensNode(0)).c_str(), O_RDWR);
        EXPECT_GT(fd, 0);
        phone.trace().clear();
        return fd;
    }
    phone::Controller& controller() { return *phone.controller(0); }

    void fault(const std::string& text) { phone.faults().add(phone::parseFault(text)); }

    Phone phone;
};

// --- Media graph

TEST_F(KernelTest, EntitiesAreEnumeratedByTheFirstGreaterId) {
    phone.media().change([](auto& devices) {
        const auto entity = [](uint32_t id, const char* node) {
            phone::MediaEntity made;
            made.id = id;
            made.minor = id;
            made.node = node;
            return made;
        };
        devices = {{7, "m", "d", "", "", {entity(40, "v4l-subdev9"), entity(41, ""), entity(1, "")}}};
    });
    const int fd = open("/dev/media7", O_RDWR);
    const struct {
        uint32_t asked;
        uint32_t got;  // 0: EINVAL
    } cases[] = {{0x80000001, 40}, {0x80000000 | 40, 41}, {0x80000000 | 41, 0}, {41, 41}, {2, 0}};
    for (const auto& expected : cases) {
        media_entity_desc entity{};
        entity.id = expected.asked;
        errno = 0;
        const int result = ioctl(fd, MEDIA_IOC_ENUM_ENTITIES, &entity);
        EXPECT_EQ(result, expected.got != 0 ? 0 : -1) << expected.asked;
        EXPECT_EQ(errno, expected.got != 0 ? 0 : EINVAL);
        // A failure copies nothing back.
        EXPECT_EQ(entity.id, expected.got != 0 ? expected.got : expected.asked);
    }
    std::array<char, 8> target{};
    EXPECT_EQ(readlink("/sys/dev/char/81:40", target.data(), target.size()), 8) << "cut to the buffer";
    EXPECT_EQ(std::string(target.data(), target.size()), "../../de");

    phone.media().setDevices({});
    media_device_info info{};
    EXPECT_EQ(ioctl(fd, MEDIA_IOC_DEVICE_INFO, &info), -1);
    EXPECT_EQ(errno, ENODEV) << "a device that is gone";
    close(fd);
}

// --- Requests: how they move

TEST_F(KernelTest, TheRequestAloneSaysHowMuchMoves) {
    const int fd = openLens();
    const struct {
        uint32_t request;
        size_t size;
    } cases[] = {{0xC00156D6, 1}, {0xC00256CA, 2}, {0xC03856DA, 56}};
    for (const auto& expected : cases) {
        std::vector<uint8_t> user(expected.size + 64, 0xA5);
        size_t seen = 0;
        // The kernel has its copy by now: what happens to the driver's bytes meanwhile is overwritten.
        phone.faults().setOverride([&](FaultPoint, std::string_view, std::span<const uint8_t> input) {
            seen = input.size();
            std::fill(user.begin(), user.end(), uint8_t{0x11});
            return std::optional<FaultEffect>{};
        });
        EXPECT_EQ(ioctl(fd, expected.request, user.data()), 0);
        EXPECT_EQ(seen, expected.size);
        EXPECT_EQ(user[0], 0xA5) << std::hex << expected.request;
        EXPECT_EQ(std::vector<uint8_t>(user.begin() + static_cast<std::ptrdiff_t>(expected.size), user.end()),
                  std::vector<uint8_t>(64, 0x11));
    }
    phone.faults().setOverride({});
    close(fd);
}

TEST_F(KernelTest, WriteOnlyRequestsAndFailuresCopyNothingBack) {
    const int fd = openLens();
    fault("SET_MODE:garbage=ff");
    int32_t mode = 2;
    EXPECT_EQ(ioctl(fd, 0x400456C2U, &mode), 0);
    EXPECT_EQ(mode, 2);
    fault("READ_HALL_INFO:errno=EIO");
    std::array<uint8_t, 16> record{};
    record.fill(0x5A);
    const auto before = record;
    EXPECT_EQ(ioctl(fd, 0xC01056D2U, record.data()), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(record, before);
    EXPECT_EQ(controller().count(ois::Request::kReadHallInfo), 0U);
    close(fd);
}

TEST_F(KernelTest, UnknownRequestsAndDescriptorsAreRefused) {
    const int fd = openLens();
    std::array<uint8_t, 2048> record{};
    const struct {
        const char* what;
        unsigned long request;
        int fd;
        int error;
    } cases[] = {
        {"unknown number", 0xC00456C3, fd, ENOTTY},  {"other size", 0xC01456D4, fd, ENOTTY},
        {"other direction", 0x401856D4, fd, ENOTTY}, {"other type", 0xC01857D4, fd, ENOTTY},
        {"no descriptor", 0xC00456DC, -1, EBADF},
    };
    for (const auto& expected : cases) {
        EXPECT_EQ(ioctl(expected.fd, expected.request, record.data()), -1) << expected.what;
        EXPECT_EQ(errno, expected.error) << expected.what;
    }
    EXPECT_EQ(ioctl(fd, 0xC00456C4U, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(controller().count(), 0U);
    EXPECT_EQ(phone.trace().events(phone::EventKind::kSubDevice).size(), 6U);
    close(fd);
}

TEST_F(KernelTest, FaultsStrikeRequests) {
    const int fd = openLens();
    fault("READ_GAIN@2:result=7");
    fault("READ_GAIN@3:lost");
    fault("READ_GAIN@4:garbage=0102");
    fault("READ_GAIN@5:slow=20ms");
    for (int i = 1; i <= 5; ++i) {
        ois::OisGain gain{1, 9, 0, 0, 0, 0};
        const int64_t start = phone.clock().nowUs();
        EXPECT_EQ(ioctl(fd, 0xC01856D0U, &gain), i == 2 ? 7 : 0) << i;
        EXPECT_EQ(gain.valueXi, i == 3 ? 0 : i == 4 ? 0x02010201 : 1000) << i;
        EXPECT_EQ(phone.clock().nowUs() - start, i == 5 ? 20000 : 0) << i;
    }
    EXPECT_EQ(controller().count(ois::Request::kReadGain), 4U) << "all but the lost one";
    close(fd);
}

TEST_F(KernelTest, RequestsAreNotSerialised) {
    const int fd = openLens();
    fault("READ_STATUS:slow=1s");
    int64_t slowDone = 0;
    std::thread slow([&] {
        ois::OisStatusRecord record{};
        EXPECT_EQ(ioctl(fd, 0xC03856DAU, &record), 0);
        slowDone = phone.clock().nowUs();
    });
    usleep(10000);
    EXPECT_EQ(setMode(fd, 2), 0);
    EXPECT_EQ(phone.clock().nowUs(), 10000);
    EXPECT_EQ(controller().mode(), 2);
    slow.join();
    EXPECT_EQ(slowDone, 1000000);
    close(fd);
}

// --- Requests: what the controller makes of them

TEST_F(KernelTest, TheControllerTakesNoteOfWhatItIsTold) {
    const int fd = openLens();
    EXPECT_EQ(setMode(fd, 125000), 0);
    EXPECT_EQ(setMode(fd, 10), 0);
    ois::OisGain gain{1, 0, 9.0F, 0.75F, 9, 3000};
    EXPECT_EQ(ioctl(fd, 0xC01856CEU, &gain), 0);
    EXPECT_EQ(controller().state().captureValue, 125000);
    EXPECT_EQ(controller().mode(), 10);
    EXPECT_EQ(ioctl(fd, 0xC01856D0U, &gain), 0);
    EXPECT_EQ(gain.valueXi, 1000) << "only the Y values were written";
    EXPECT_EQ(gain.valueYi, 3000);

    int32_t end = -1;
    EXPECT_EQ(ioctl(fd, 0xC00456C8U, &end), 0);
    EXPECT_EQ(controller().state().sessionEndWord, -1);
    EXPECT_EQ(controller().mode(), 0);
    close(fd);
}

TEST_F(KernelTest, ModeWordsDecideWhatTheLensDoes) {
    using phone::StabiliserMode;
    const int fd = openLens();
    const auto lens = [&] { return controller().stabiliser().mode(); };
    EXPECT_EQ(setMode(fd, 2), 0);
    ois_act_parameters active{2, std::bit_cast<uint32_t>(0.5F)};
    EXPECT_EQ(ioctl(fd, 0xC00856D8U, &active), 0);
    EXPECT_EQ(lens(), StabiliserMode::kActive);
    active = {1, 1};
    EXPECT_EQ(ioctl(fd, 0xC00856D8U, &active), 0);
    EXPECT_EQ(lens(), StabiliserMode::kOn);
    for (int32_t on : {1, 0}) {
        EXPECT_EQ(ioctl(fd, 0xC00456DCU, &on), 0);
        EXPECT_EQ(lens(), on != 0 ? StabiliserMode::kActive : StabiliserMode::kOn);
    }
    ois::OisFixMode target{0, 0, 2140, 1950, 0, 0};
    EXPECT_EQ(ioctl(fd, 0xC01856D4U, &target), 0);
    EXPECT_EQ(lens(), StabiliserMode::kFixed) << "whatever the enable word says";
    usleep(200000);
    EXPECT_EQ(ioctl(fd, 0xC01856D9U, &target), 0);
    EXPECT_NEAR(target.hall_x, 2140, 1);
    EXPECT_NEAR(target.hall_y, 1950, 1);
    EXPECT_EQ(setMode(fd, 2), 0);
    EXPECT_EQ(lens(), StabiliserMode::kOn) << "the same mode again lets go of the position";
    EXPECT_EQ(setMode(fd, 0), 0);
    EXPECT_EQ(lens(), StabiliserMode::kOff);
    close(fd);
}

TEST_F(KernelTest, TheStatusRecordShowsTheLoopAtThisMoment) {
    const int fd = openLens();
    phone.motion().set(phone::makeBuiltinMotion("hand"));
    EXPECT_EQ(setMode(fd, 2), 0);
    usleep(2005007);
    ois::OisStatusRecord record{};
    record.chose = 15;
    EXPECT_EQ(ioctl(fd, 0xC03856DAU, &record), 0);
    EXPECT_EQ(record.chose, 15);
    EXPECT_EQ(record.timestampSeconds, 2U);
    EXPECT_EQ(record.timestampFraction, 5007U);
    const phone::StabiliserState now = controller().stabiliserState();
    EXPECT_EQ(record.gyro_target_x, std::lround(now.gyroTargetX * 1000));
    EXPECT_NE(record.gyro_target_x, 0);
    EXPECT_EQ(record.hall_x, now.hallX);
    EXPECT_NE(record.hall_x, 2040) << "the lens moves";
    close(fd);
}

TEST_F(KernelTest, TheGyroOffsetIsMeasured) {
    auto module = lensModule("lens0");
    module.stabiliser.gyroBiasRadS = {0.01, -0.02, 0};
    phone.fit(0, module);
    const int fd = open(("/dev/" + phone::MediaGraph::lensNode(0)).c_str(), O_RDWR);
    usleep(500000);
    EXPECT_FALSE(controller().state().gyroOffset.has_value());
    int32_t zero = 0;
    EXPECT_EQ(ioctl(fd, 0xC00456C4U, &zero), 0);
    const auto offset = controller().state().gyroOffset.value();
    EXPECT_NEAR(offset[0], 0.01 * 939.65, 1);
    EXPECT_NEAR(offset[1], -0.02 * 939.65, 1);
    close(fd);
}

// --- Files

std::optional<std::string> readThroughPhone(const char* path) {
    FILE* file = fopen(path, "r");
    if (file == nullptr) return std::nullopt;
    std::array<char, 64> text{};
    const size_t length = fread(text.data(), 1, text.size(), file);
    fclose(file);
    return std::string(text.data(), length);
}

TEST_F(KernelTest, DumpFilesStayInThePhonesFolder) {
    FILE* file = fopen(kDumpFile, "w");
    ASSERT_NE(file, nullptr);
    fputs("row\n", file);
    EXPECT_EQ(fclose(file), 0);
    EXPECT_EQ(fs::file_size(phone.files().dumpFolder() / "ois_dump_test.txt"), 4U);
    EXPECT_FALSE(fs::exists(kDumpFile));

    EXPECT_EQ(fopen("/mnt/vendor/nvcfg/camera/../../escape.txt", "w"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(KernelTest, TheThermalFileShowsWhatItWasSetTo) {
    EXPECT_EQ(readThroughPhone(kThermal), "30\n");
    phone.files().setThermal("garbage");
    EXPECT_EQ(readThroughPhone(kThermal), "garbage");
    phone.files().setThermalUnreadable();
    EXPECT_FALSE(readThroughPhone(kThermal).has_value());
    EXPECT_EQ(errno, EACCES);
    phone.files().setThermalAbsent();
    EXPECT_FALSE(readThroughPhone(kThermal).has_value());
    EXPECT_EQ(errno, ENOENT);

    phone.files().setThermalCurve({{1, 20}, {3, 40}, {3.5, -5}});
    std::string seen;
    for (int i = 0; i < 5; ++i) {
        seen += readThroughPhone(kThermal).value_or("none");
        usleep(1000000);
    }
    EXPECT_EQ(seen, "20\n20\n30\n40\n-5\n");
    EXPECT_THROW(phone.files().setThermalCurve({}), std::invalid_argument);
    EXPECT_THROW(phone.files().setThermalCurve({{1, 20}, {1, 30}}), std::invalid_argument);
}

TEST_F(KernelTest, ACloseThatFailsClosesAllTheSame) {
    phone.faults().setOverride([](FaultPoint point, std::string_view, std::span<const uint8_t>) {
        FaultEffect effect;
        effect.error = EIO;
        return point == FaultPoint::kClose ? std::optional(effect) : std::nullopt;
    });
    EXPECT_EQ(close(open("/dev/media1", O_RDWR)), -1);
    FILE* file = fopen(kThermal, "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(fclose(file), EOF);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(phone.kernel().openNodes() + phone.kernel().openFiles(), 0U);
}

TEST(PhoneFolder, TemporaryOnesGoAndGivenOnesStay) {
    fs::path temporary;
    {
        Phone phone;
        temporary = phone.files().dumpFolder();
        EXPECT_TRUE(fs::exists(temporary));
        EXPECT_THROW(Phone{}, std::logic_error) << "one at a time";
    }
    EXPECT_FALSE(fs::exists(temporary));

    PhoneOptions options;
    options.folder = fs::temp_directory_path() / ("phone_kernel_test." + std::to_string(getpid()));
    { const Phone phone(options); }
    EXPECT_TRUE(fs::exists(options.folder / "mnt/vendor/nvcfg/camera"));
    fs::remove_all(options.folder);

    options.folder = "/proc/no/such/place";
    EXPECT_THROW(Phone{options}, std::runtime_error);
}

// --- What is not the phone's

TEST_F(KernelTest, OtherPathsGoToLibcUnseen) {
    const uint64_t before = phone.trace().count();
    const fs::path path = phone.files().dumpFolder() / "created";
    const int created = open(path.c_str(), O_CREAT | O_WRONLY, 0640);
    EXPECT_GE(created, 0);
    close(created);
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::owner_all,
              fs::perms::owner_read | fs::perms::owner_write);
    FILE* file = fopen(path.c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(fclose(file), 0);
    EXPECT_EQ(phone.trace().count(), before);
}

TEST_F(KernelTest, FortifiedCallsAreTakenToo) {
    phone.fit(0, lensModule("lens0"));
    const int fds[] = {__open_2("/dev/media1", O_RDWR), open64("/dev/media1", O_RDWR)};
    EXPECT_EQ(phone.kernel().openNodes(), 2U);
    std::array<char, 256> target{};
    EXPECT_GT(__readlink_chk("/sys/dev/char/81:100", target.data(), 255, target.size()), 0);
    EXPECT_TRUE(std::string(target.data()).ends_with("/v4l-subdev10"));
    FILE* file = fopen64(kThermal, "r");
    ASSERT_NE(file, nullptr);
    fclose(file);
    for (const int fd : fds) close(fd);
}

TEST(PhoneLifetime, DescriptorsOfAPhoneThatIsGoneAreNobodys) {
    int fd = -1;
    {
        Phone phone;
        phone.fit(0, lensModule("lens0"));
        fd = open("/dev/v4l-subdev10", O_RDWR);
        EXPECT_TRUE(phone.kernel().owns(fd));
    }
    EXPECT_EQ(Phone::current(), nullptr);
    Phone next;
    next.fit(0, lensModule("lens0"));
    EXPECT_EQ(setMode(fd, 2), -1);
    EXPECT_EQ(next.controller(0)->count(), 0U);
    EXPECT_EQ(close(fd), 0);
}

// --- The machine's own kernel

TEST(RealKernel, CallsPassOnToTheMachine) {
    const int direct = open("/dev/media31", O_RDWR);
    const int directError = errno;
    ASSERT_EQ(direct, -1) << "a machine with 32 media devices";
    const fs::path folder = fs::temp_directory_path() / ("phone_real_test." + std::to_string(getpid()));
    {
        PhoneOptions options;
        options.kernel = phone::KernelKind::kReal;
        options.dumpFolder = folder / "dump";
        options.thermalFolder = folder / "thermal";
        Phone phone(options);
        phone.fit(0, lensModule("lens0"));
        EXPECT_EQ(phone.controller(0), nullptr);
        EXPECT_EQ(open("/dev/media31", O_RDWR), -1);
        EXPECT_EQ(errno, directError);
        std::ofstream(folder / "thermal/cam_thermal_sensor0") << "44\n";
        EXPECT_EQ(readThroughPhone(kThermal), "44\n");
        FILE* file = fopen(kDumpFile, "w");
        ASSERT_NE(file, nullptr);
        fclose(file);
        EXPECT_TRUE(fs::exists(folder / "dump/ois_dump_test.txt"));
    }
    fs::remove_all(folder);
}

}  // namespace
