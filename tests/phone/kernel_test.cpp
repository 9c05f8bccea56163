// The phone's kernel side, called as a driver calls it: through libc's functions.

#include <fcntl.h>
#include <linux/media.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <thread>

#include "driver/driver_fixture.h"
#include "kernel/kernel.h"
#include "motion/motion.h"
#include "wire/records.h"

// What fortified code calls.
extern "C" int __open_2(const char* path, int flags);
extern "C" ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t bufferSize);

namespace {

namespace fs = std::filesystem;
using driver_test::kSensor;
using phone::Phone;

constexpr const char* kDumpFile = "/mnt/vendor/nvcfg/camera/ois_dump_test.txt";
constexpr const char* kThermal = "/sys/cam_thermal/cam_thermal_sensor0";
const std::string kLensNode = "/dev/" + phone::MediaGraph::lensNode(kSensor);

class KernelTest : public driver_test::DriverTest {};

// With an open sub-device.
class LensTest : public driver_test::DriverTest {
  protected:
    LensTest() {
        phone::ModuleDescription module = phone::moduleByName("dw9786");
        module.gain = {0, 0, 0.5F, 0.25F, 1000, 2000};
        module.stabiliser.hallCenterX = 2040;
        module.stabiliser.hallCenterY = 2050;
        module.stabiliser.hallNoiseCounts = 0;
        module.stabiliser.gyroBiasRadS = {0.01, -0.02, 0};
        fit(module);
        lens = ::open(kLensNode.c_str(), O_RDWR);
        forget();
    }
    ~LensTest() override { close(lens); }

    template <typename Record>
    int ask(uint32_t request, Record& record) {
        return ioctl(lens, request, &record);
    }
    int setMode(int32_t mode) { return ask(0x400456C2U, mode); }
    phone::StabiliserMode lensMode() { return controller().stabiliser().mode(); }

    int lens = -1;
};

// --- Media graph

TEST_F(KernelTest, EntitiesAreEnumeratedByTheFirstGreaterId) {
    const int fd = ::open("/dev/media1", O_RDWR);
    // The lens device has the ids 1, 2 and 29. What is asked, and the answer or 0.
    const std::pair<uint32_t, uint32_t> cases[] = {
        {0x80000001, 2}, {0x80000002, 29}, {0x8000001d, 0}, {29, 29}, {3, 0}};
    for (const auto& [asked, answer] : cases) {
        media_entity_desc entity{};
        entity.id = asked;
        EXPECT_EQ(ioctl(fd, MEDIA_IOC_ENUM_ENTITIES, &entity), answer != 0 ? 0 : -1) << asked;
        EXPECT_EQ(entity.id, answer != 0 ? answer : asked) << "a failure copies nothing back";
    }
    close(fd);
}

TEST(MediaGraphFile, TheLensOfThatNameGetsTheController) {
    Phone phone;
    const fs::path file = phone.files().dumpFolder() / "graph.toml";
    std::ofstream(file) << "[[device]]\nnumber = 2\nmodel = 'nxa_camera_af'\nbus_info = 'platform:af.0'\n"
                           "kernel_version = [6, 1, 192]\n"
                           "[[device.entity]]\nid = 4\nname = 'dw9786 4-0069'\ntype = 0x20003\n"
                           "minor = 7\nnode = 'v4l-subdev3'\n";
    phone.media().setDevices(phone::loadMediaDevices(file));
    phone.fit(kSensor, phone::moduleByName("dw9786"));
    const int media = ::open("/dev/media2", O_RDWR);
    media_device_info info{};
    EXPECT_EQ(ioctl(media, MEDIA_IOC_DEVICE_INFO, &info), 0);
    EXPECT_EQ(info.media_version, 0x601c0U);
    media_entity_desc entity{};
    entity.id = MEDIA_ENT_ID_FLAG_NEXT;
    EXPECT_EQ(ioctl(media, MEDIA_IOC_ENUM_ENTITIES, &entity), 0);
    EXPECT_EQ(entity.id, 4U);
    entity.id = MEDIA_ENT_ID_FLAG_NEXT | 4;
    EXPECT_EQ(ioctl(media, MEDIA_IOC_ENUM_ENTITIES, &entity), -1) << "no second lens";
    std::array<char, 256> target{};
    EXPECT_GT(readlink("/sys/dev/char/81:7", target.data(), target.size()), 0);
    EXPECT_STREQ(target.data(), "../../devices/platform/af.0/video4linux/v4l-subdev3");
    const int lens = ::open("/dev/v4l-subdev3", O_RDWR);
    int32_t mode = 2;
    EXPECT_EQ(ioctl(lens, 0x400456C2U, &mode), 0);
    for (const int fd : {media, lens}) close(fd);

    std::ofstream(file) << "[[device]]\nnumber = 0\nmodel = 'a'\nkernel_version = [6, 1]\n";
    try {
        static_cast<void>(phone::loadMediaDevices(file));
        ADD_FAILURE() << "a version of two numbers";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("graph.toml:4: device.kernel_version is an array of 2"),
                  std::string::npos)
            << error.what();
    }
}

// --- Requests: how they move

TEST_F(LensTest, TheRequestAloneSaysHowMuchMoves) {
    for (const auto& [request, size] : {std::pair{0xC00156D6U, 1}, {0xC00256CAU, 2}, {0xC03856DAU, 56}}) {
        std::vector<uint8_t> user(120, 0xA5);
        // The kernel has its copy by now: what happens to the driver's bytes meanwhile is overwritten.
        decide = [&user](phone::FaultPoint, std::string_view, std::span<const uint8_t>) {
            std::ranges::fill(user, uint8_t{0x11});
            return std::optional<phone::FaultEffect>{};
        };
        EXPECT_EQ(ask(request, user.front()), 0);
        decide = nullptr;
        EXPECT_EQ(std::ssize(sent().back().bytes), size);
        EXPECT_EQ(user[0], 0xA5) << std::hex << request;
        EXPECT_EQ(std::count(user.begin() + size, user.end(), 0x11), 120 - size);
    }
}

TEST_F(LensTest, UnknownRequestsAndDescriptorsAreRefused) {
    std::array<uint8_t, 2048> record{};
    const std::tuple<const char*, int, unsigned long, void*, int> cases[] = {
        {"unknown number", lens, 0xC00456C3, record.data(), ENOTTY},
        {"other size", lens, 0xC01456D4, record.data(), ENOTTY},
        {"other direction", lens, 0x401856D4, record.data(), ENOTTY},
        {"other type", lens, 0xC01857D4, record.data(), ENOTTY},
        {"no descriptor", -1, 0xC00456DC, record.data(), EBADF},
        {"no record", lens, 0xC00456C4, nullptr, EFAULT},
    };
    for (const auto& [what, fd, request, argument, error] : cases) {
        EXPECT_EQ(ioctl(fd, request, argument), -1) << what;
        EXPECT_EQ(errno, error) << what;
    }
    EXPECT_EQ(controller().count(), 0U);
    EXPECT_EQ(phone.trace().events(phone::EventKind::kSubDevice).size(), 6U);
}

// A page of the given protection with one behind it that cannot be touched.
class Page {
  public:
    explicit Page(int protection)
        : mPages(mmap(nullptr, 2 * kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        mprotect(mPages, kSize, protection);
    }
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    ~Page() { munmap(mPages, 2 * kSize); }
    void* first() const { return mPages; }
    void* last(size_t bytes) const { return static_cast<std::byte*>(mPages) + kSize - bytes; }

  private:
    static const size_t kSize;
    void* const mPages;
};
const size_t Page::kSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));

TEST_F(LensTest, BadPointersAreRefusedWhereAKernelTouchesThem) {
    const Page none(PROT_NONE);
    const Page readOnly(PROT_READ);
    const Page writable(PROT_READ | PROT_WRITE);
    struct Followed {
        const void* target;
        std::array<std::byte, 1536> rest;
    } followed{readOnly.first(), {}};
    controller().setFlashAnswer(phone::FlashAnswer::kThroughPointer);
    const int media = ::open("/dev/media1", O_RDONLY);
    const std::tuple<const char*, int, unsigned long, void*, int> cases[] = {
        {"no memory", lens, 0xC01856D0, none.first(), EFAULT},
        {"a part of the record", lens, 0xC01856D0, writable.last(23), EFAULT},
        {"all of the record", lens, 0xC01856D0, writable.last(24), 0},
        {"an answer to what can only be read", lens, 0xC01856D0, readOnly.first(), EFAULT},
        {"no answer", lens, 0x400456C2, readOnly.first(), 0},
        {"an unknown request", lens, 0xC00456C3, none.first(), EFAULT},
        {"an unknown request that only answers", lens, 0x800456C3, none.first(), ENOTTY},
        {"a request without a record", lens, 0x000056C3, none.first(), ENOTTY},
        {"the buffer that a record leads to", lens, 0xC60856DB, &followed, EFAULT},
        {"a media request", media, MEDIA_IOC_DEVICE_INFO, none.first(), EFAULT},
        {"an unknown media request", media, 0xC0047C7F, none.first(), ENOTTY},
    };
    for (const auto& [what, fd, request, argument, error] : cases) {
        errno = 0;
        EXPECT_EQ(ioctl(fd, request, argument), error == 0 ? 0 : -1) << what;
        EXPECT_EQ(errno, error) << what;
    }
    EXPECT_EQ(controller().count(ois::Request::kReadGain), 2U)
        << "an answer that finds no place was given all the same";
    close(media);
}

TEST_F(LensTest, WhatIsLostOrFailsBringsNothingBack) {
    for (const char* fault : {"READ_GAIN:lost", "READ_GAIN:errno=EIO", "READ_GAIN:result=-5"}) {
        phone.faults().clear();
        phone.faults().add(fault);
        ois::OisGain gain{1, 9, 9, 9, 9, 9};
        EXPECT_EQ(ask(0xC01856D0U, gain), fault == std::string("READ_GAIN:lost") ? 0 : -1);
        EXPECT_EQ(gain.valueXi, 9);
    }
    EXPECT_EQ(controller().count(ois::Request::kReadGain), 1U) << "the last one, with a result of its own";
    phone.faults().add("SET_MODE:garbage=ff");
    int32_t mode = 2;
    EXPECT_EQ(ask(0x400456C2U, mode), 0);
    EXPECT_EQ(mode, 2) << "nor does a write";
}

TEST_F(LensTest, RequestsAreNotSerialised) {
    phone.faults().add("READ_STATUS:slow=1s");
    int64_t slowDone = 0;
    std::thread slow([&] {
        ois::OisStatusRecord record{};
        EXPECT_EQ(ask(0xC03856DAU, record), 0);
        slowDone = phone.clock().nowUs();
    });
    usleep(10000);
    EXPECT_EQ(setMode(2), 0);
    EXPECT_EQ(phone.clock().nowUs(), 10000);
    EXPECT_EQ(controller().mode(), 2);
    slow.join();
    EXPECT_EQ(slowDone, 1000000);
}

// --- Requests: what the controller makes of them

TEST_F(LensTest, TheControllerTakesNoteOfWhatItIsTold) {
    EXPECT_EQ(setMode(125000), 0);
    EXPECT_EQ(setMode(10), 0);
    EXPECT_EQ(controller().mode(), 10);
    ois::OisGain gain{1, 0, 9.0F, 0.75F, 9, 3000};
    EXPECT_EQ(ask(0xC01856CEU, gain), 0);
    EXPECT_EQ(ask(0xC01856D0U, gain), 0);
    EXPECT_EQ(gain.valueXi, 1000) << "only the Y values were written";
    EXPECT_EQ(gain.valueYi, 3000);

    int32_t end = -1;
    EXPECT_EQ(ask(0xC00456C8U, end), 0);
    EXPECT_EQ(controller().mode(), 0);
}

TEST_F(LensTest, ModeWordsDecideWhatTheLensDoes) {
    using phone::StabiliserMode;
    EXPECT_EQ(setMode(2), 0);
    for (const auto& [enable, mode] : {std::pair{2, StabiliserMode::kActive}, {1, StabiliserMode::kOn}}) {
        ois_act_parameters parameters{enable, std::bit_cast<uint32_t>(0.5F)};
        EXPECT_EQ(ask(0xC00856D8U, parameters), 0);
        EXPECT_EQ(lensMode(), mode);
    }
    for (auto [enable, mode] : {std::pair{1, StabiliserMode::kActive}, {0, StabiliserMode::kOn}}) {
        EXPECT_EQ(ask(0xC00456DCU, enable), 0);
        EXPECT_EQ(lensMode(), mode);
    }
    ois::OisFixMode target{0, 0, 2140, 1950, 0, 0};
    EXPECT_EQ(ask(0xC01856D4U, target), 0);
    EXPECT_EQ(lensMode(), StabiliserMode::kFixed) << "whatever the enable word says";
    usleep(200000);
    EXPECT_EQ(ask(0xC01856D9U, target), 0);
    EXPECT_NEAR(target.hall_x, 2140, 1);
    EXPECT_NEAR(target.hall_y, 1950, 1);
    EXPECT_EQ(setMode(2), 0);
    EXPECT_EQ(lensMode(), StabiliserMode::kOn) << "the same mode again lets go of the position";
    EXPECT_EQ(setMode(0), 0);
    EXPECT_EQ(lensMode(), StabiliserMode::kOff);
}

TEST_F(LensTest, TheStatusRecordShowsTheLoopAtThisMoment) {
    phone.motion().set(phone::makeBuiltinMotion("hand"));
    EXPECT_EQ(setMode(2), 0);
    usleep(2005007);
    ois::OisStatusRecord record{};
    EXPECT_EQ(ask(0xC03856DAU, record), 0);
    EXPECT_EQ(record.timestampSeconds, 2U);
    EXPECT_EQ(record.timestampFraction, 5007U);
    const phone::StabiliserState now = controller().stabiliser().stateAt(phone.clock().nowUs());
    EXPECT_EQ(record.gyro_target_x, std::lround(now.gyroTargetX * 1000));
    EXPECT_NE(record.gyro_target_x, 0);
    EXPECT_EQ(record.hall_x, now.hallX);
    EXPECT_NE(record.hall_x, 2040) << "the lens moves";
}

TEST_F(LensTest, TheGyroOffsetIsMeasured) {
    usleep(500000);
    EXPECT_FALSE(controller().gyroOffset().has_value());
    int32_t zero = 0;
    EXPECT_EQ(ask(0xC00456C4U, zero), 0);
    const auto offset = controller().gyroOffset().value();
    EXPECT_NEAR(offset[0], 0.01 * 939.65, 1);
    EXPECT_NEAR(offset[1], -0.02 * 939.65, 1);
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

TEST_F(KernelTest, TheThermalFileShowsWhatItWasSetToOrCannotBeRead) {
    phone.files().setThermalCurve({{1, 20}, {3, 40}, {3.5, -5}});
    std::string seen;
    for (int i = 0; i < 5; ++i) {
        seen += readThroughPhone(kThermal).value_or("none");
        usleep(1000000);
    }
    EXPECT_EQ(seen, "20\n20\n30\n40\n-5\n");
    phone.files().setThermalUnreadable();
    EXPECT_FALSE(readThroughPhone(kThermal).has_value());
    EXPECT_EQ(errno, EACCES);
    phone.files().setThermalAbsent();
    EXPECT_FALSE(readThroughPhone(kThermal).has_value());
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(KernelTest, ACloseThatFailsClosesAllTheSame) {
    phone.faults().add("close:errno=EIO");
    EXPECT_EQ(close(::open("/dev/media1", O_RDWR)), -1);
    EXPECT_EQ(fclose(fopen(kThermal, "r")), EOF);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(phone.kernel().openNodes() + phone.kernel().openFiles(), 0U);
}

TEST(PhoneFolder, GivenOnesStay) {
    phone::PhoneOptions options;
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
    close(::open(path.c_str(), O_CREAT | O_WRONLY, 0640));
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::owner_all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(readThroughPhone(path.c_str()), "");
    EXPECT_EQ(phone.trace().count(), before);

    EXPECT_EQ(fopen("/mnt/vendor/nvcfg/camera/../../escape.txt", "w"), nullptr) << "no way out";
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(LensTest, FortifiedCallsAreTakenToo) {
    const int fds[] = {__open_2("/dev/media1", O_RDWR), open64("/dev/media1", O_RDWR)};
    EXPECT_EQ(phone.kernel().openNodes(), 3U);
    std::array<char, 256> target{};
    EXPECT_EQ(readlink("/sys/dev/char/81:102", target.data(), 8), 8) << "cut to the buffer";
    EXPECT_STREQ(target.data(), "../../de");
    EXPECT_GT(__readlink_chk("/sys/dev/char/81:102", target.data(), 255, target.size()), 0);
    EXPECT_TRUE(std::string(target.data()).ends_with("/v4l-subdev12"));
    fclose(fopen64(kThermal, "r"));
    EXPECT_EQ(phone.trace().events(phone::EventKind::kFile).back().name, "fclose");
    for (const int fd : fds) close(fd);
}

TEST(PhoneLifetime, NothingIsLeftOfAPhoneThatIsGone) {
    fs::path temporary;
    int fd = -1;
    {
        Phone phone;
        temporary = phone.files().dumpFolder();
        EXPECT_TRUE(fs::exists(temporary));
        phone.fit(kSensor, phone::moduleByName("dw9786"));
        fd = ::open(kLensNode.c_str(), O_RDWR);
        EXPECT_TRUE(phone.kernel().owns(fd));
        EXPECT_THROW(Phone{}, std::logic_error) << "one at a time";
    }
    EXPECT_FALSE(fs::exists(temporary));
    Phone next;
    next.fit(kSensor, phone::moduleByName("dw9786"));
    int32_t mode = 2;
    EXPECT_EQ(ioctl(fd, 0x400456C2U, &mode), -1);
    EXPECT_EQ(next.controller(kSensor)->count(), 0U);
    EXPECT_EQ(close(fd), 0);
}

// --- The machine's own kernel

TEST(RealKernel, CallsPassOnToTheMachine) {
    ASSERT_EQ(::open("/dev/media31", O_RDWR), -1) << "a machine with 32 media devices";
    const int directError = errno;
    const fs::path folder = fs::temp_directory_path() / ("phone_real_test." + std::to_string(getpid()));
    {
        phone::PhoneOptions options;
        options.kernel = phone::KernelKind::kReal;
        options.dumpFolder = folder / "dump";
        options.thermalFolder = folder / "thermal";
        Phone phone(options);
        phone.fit(kSensor, phone::moduleByName("dw9786"));
        EXPECT_EQ(phone.controller(kSensor), nullptr);
        EXPECT_EQ(::open("/dev/media31", O_RDWR), -1);
        EXPECT_EQ(errno, directError);
        std::ofstream(folder / "thermal/cam_thermal_sensor0") << "44\n";
        EXPECT_EQ(readThroughPhone(kThermal), "44\n");
        fclose(fopen(kDumpFile, "w"));
        EXPECT_TRUE(fs::exists(folder / "dump/ois_dump_test.txt"));
    }
    fs::remove_all(folder);
}

}  // namespace
