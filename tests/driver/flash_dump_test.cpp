// The dump of the controller's flash data.

#include <sstream>

#include "driver/dump_fixture.h"

namespace {

using driver_test::DumpTest;
using driver_test::kBringUpUs;
using driver_test::Values;
using phone::FlashAnswer;

constexpr const char* kFlash = "_flash.txt";
constexpr FlashAnswer kBothAnswers[] = {FlashAnswer::kInPlace, FlashAnswer::kThroughPointer};

ois::OisFlashRecord flashRecord(uint32_t length, uint32_t base) {
    ois::OisFlashRecord record{};
    record.length = length;
    record.base = base;
    for (size_t i = 0; i < std::size(record.data); ++i) record.data[i] = static_cast<uint8_t>(i * 7 + 3);
    return record;
}

std::string expectedFile(const ois::OisFlashRecord& record) {
    std::ostringstream text;
    text << std::hex;
    for (uint64_t line = 0; line < record.length && line < 1536; line += 8) {
        for (uint64_t i = line; i < line + 8; ++i) {
            text << "address: 0x" << record.base + i << "  value: 0x" << int{record.data[i]} << ",  ";
        }
        text << '\n';
    }
    return text.str();
}

class FlashDump : public DumpTest {
  protected:
    void expectInBuffer(const ois::OisFlashRecord& record) {
        ASSERT_NE(driver.mOisFlashData, nullptr);
        EXPECT_EQ(std::memcmp(driver.mOisFlashData, &record, sizeof record), 0);
    }
};

TEST_F(FlashDump, TwoLinesAsTyped) {
    openQuiet(4);
    ois::OisFlashRecord record{};
    record.length = 9;
    record.base = 0x2000;
    record.data[0] = 0xab;
    record.data[1] = 0x05;
    record.data[8] = 0x10;
    record.data[15] = 0xff;
    controller().setFlash(record);
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_EQ(dumped(kFlash), driver_test::writtenCourse("flash_dump", "two lines", {{"blanks", "  "}}));
}

// Either kernel's answer is in the file, and in the buffer for the next reader.
TEST_F(FlashDump, EitherKernelsAnswerIsTaken) {
    for (const FlashAnswer how : kBothAnswers) {
        for (const uint32_t length : {0U, 1U, 8U, 9U, 1529U, 1536U, 1537U, 0xffffffffU}) {
            SCOPED_TRACE(length);
            openQuiet(4);
            controller().setFlashAnswer(how);
            const auto* buffer = driver.mOisFlashData;
            auto record = flashRecord(length, 0xfffffffcU);
            for (const uint8_t change : {uint8_t{0}, uint8_t{1}}) {  // a second dump does not see the first
                record.data[0] = change;
                controller().setFlash(record);
                EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
                EXPECT_EQ(dumped(kFlash), expectedFile(record));
                EXPECT_EQ(driver.mOisFlashData, buffer);
                expectInBuffer(record);
            }
            driver.Uninit();
        }
    }
}

// A kernel that follows the pointer may be at it until the transfer has settled.
TEST_F(FlashDump, TheBufferIsReadAfterTheSleep) {
    openQuiet(4);
    controller().setFlashAnswer(FlashAnswer::kThroughPointer);
    const auto late = flashRecord(16, 0x100);
    controller().setFlash({});
    phone.trace().setListener([&](const phone::Event& event) {
        if (event.kind == phone::EventKind::kSleep) *driver.mOisFlashData = late;
    });
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_EQ(dumped(kFlash), expectedFile(late));
}

// Another user's Init replaces the buffer while the transfer is under way.
TEST_F(FlashDump, AnotherUserDoesNotDisturbTheTransfer) {
    setProperty("dump", 4);
    for (const FlashAnswer how : kBothAnswers) {
        SCOPED_TRACE(how == FlashAnswer::kInPlace ? "in place" : "through the pointer");
        open(dumpModule());
        const auto* before = driver.mOisFlashData;
        const auto record = flashRecord(16, 0x100);
        controller().setFlash(record);
        controller().setFlashAnswer(how);
        onCommand("READ_FLASH", [&](auto) {
            EXPECT_EQ(driver.Init(1, 2), 1);
            return std::nullopt;
        });
        EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
        decide = nullptr;
        EXPECT_EQ(dumped(kFlash), expectedFile(record));
        ASSERT_NE(driver.mOisFlashData, nullptr);
        EXPECT_NE(driver.mOisFlashData, before);
        EXPECT_EQ(driver.mOisFlashData->length, how == FlashAnswer::kInPlace ? 16U : 0U);
        driver.Uninit();
        driver.Uninit();
    }
}

// The last Uninit takes the buffer away while the bring-up's transfer is under way; the storage stays.
TEST_F(FlashDump, TheLastUninitDoesNotDisturbTheTransfer) {
    setProperty("dump", 4);
    fault("READ_FLASH:slow=50ms");
    for (const FlashAnswer how : kBothAnswers) {
        fit(dumpModule());
        controller().setFlash(flashRecord(16, 0x100));
        controller().setFlashAnswer(how);
        ASSERT_EQ(driver.Init(1, 2), 1);
        phone.clock().sleepUs(10000);
        driver.Uninit();
        EXPECT_EQ(dumped(kFlash), expectedFile(flashRecord(16, 0x100)));
        EXPECT_EQ(driver.mOisFlashData, nullptr);
        std::filesystem::remove(dumpFile(kFlash));
    }
}

TEST_F(FlashDump, TheSwitchDecidesOnTheFileAndTheTransferOnTheResult) {
    const auto record = flashRecord(8, 0);
    const struct {
        const char* fault;
        int dump;
        const char* result;  // as the course has it
        int32_t returned;
        const char* course;
        std::optional<std::string> file;
    } cases[] = {{"READ_FLASH:result=7", 0, "7", 7, "not wanted", {}},
                 {"READ_FLASH:result=7", 0xfb, "7", 7, "not wanted", {}},
                 {"READ_FLASH:result=5", 4, "5", 5, "written", expectedFile(record)},
                 {"READ_FLASH:errno=EIO", 0xff, "-1 EIO", -1, "written", ""},
                 {"READ_FLASH:result=3", 4, "3", -3, "no folder", {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        phone.faults().clear();
        openQuiet(c.dump);
        controller().setFlash(record);
        controller().setFlashAnswer(FlashAnswer::kThroughPointer);
        fault(c.fault);
        if (c.course == std::string("no folder")) removeDumpFolder();
        EXPECT_EQ(driver.DumpOisFlashData2File(), c.returned);
        EXPECT_EQ(dumped(kFlash), c.file);
        expectCourse("flash_dump", c.course, words({{"result", c.result}}));
        driver.Uninit();
    }
}

TEST_F(FlashDump, WithoutADeviceTheTransferIsSentAllTheSame) {
    openQuiet(4);
    const int32_t descriptor = driver.fd_driver;
    for (const auto& [value, course] : {std::pair(0, "descriptor 0"), std::pair(-1, "no device")}) {
        driver.fd_driver = value;
        EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
        expectCourse("flash_dump", course, words());
        EXPECT_EQ(dumped(kFlash).has_value(), value == 0);
        std::filesystem::remove(dumpFile(kFlash));
    }
    driver.fd_driver = descriptor;
    driver.Uninit();
    open("korvas4sw-hub");
    driver.mProperty.dump = 4;
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    expectCourse("flash_dump", "behind the hub", words());
    EXPECT_FALSE(anythingDumped());
}

}  // namespace
