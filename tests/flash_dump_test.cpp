// The dump of the controller's flash data.

#include <sstream>

#include "dump_fixture.h"

namespace {

using driver_test::DumpTest;
using driver_test::failure;
using driver_test::linesOf;
using driver_test::result;
using phone::FlashAnswer;
using Keys = std::vector<std::string>;

constexpr const char* kFlash = "_flash.txt";

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
    void openQuiet() {
        open(dumpModule());
        driver.mProperty.dump = 4;
    }
    // Every request of the driver meets this.
    void answerRequests(const phone::FaultEffect& effect) {
        decide = [effect](phone::FaultPoint point, std::string_view, std::span<const uint8_t>) {
            return point == phone::FaultPoint::kRequest ? std::optional(effect) : std::nullopt;
        };
    }
};

TEST_F(FlashDump, TwoLinesAsTyped) {
    openQuiet();
    ois::OisFlashRecord record{};
    record.length = 9;
    record.base = 0x2000;
    record.data[0] = 0xab;
    record.data[1] = 0x05;
    record.data[8] = 0x10;
    record.data[15] = 0xff;
    controller().setFlash(record);
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_EQ(dumped(kFlash),
              "address: 0x2000  value: 0xab,  address: 0x2001  value: 0x5,  address: 0x2002  value: 0x0,  "
              "address: 0x2003  value: 0x0,  address: 0x2004  value: 0x0,  address: 0x2005  value: 0x0,  "
              "address: 0x2006  value: 0x0,  address: 0x2007  value: 0x0,  \n"
              "address: 0x2008  value: 0x10,  address: 0x2009  value: 0x0,  address: 0x200a  value: 0x0,  "
              "address: 0x200b  value: 0x0,  address: 0x200c  value: 0x0,  address: 0x200d  value: 0x0,  "
              "address: 0x200e  value: 0x0,  address: 0x200f  value: 0xff,  \n");
}

TEST_F(FlashDump, EitherKernelsAnswerIsTaken) {
    for (const auto how : {FlashAnswer::kInPlace, FlashAnswer::kThroughPointer}) {
        for (const uint32_t length : {0U, 1U, 8U, 9U, 1528U, 1529U, 1536U, 1537U, 4096U, 0xffffffffU}) {
            for (const uint32_t base : {0U, 0x5000U, 0xfffffffcU}) {
                SCOPED_TRACE(std::to_string(length) + ' ' + std::to_string(base));
                openQuiet();
                controller().setFlashAnswer(how);
                const auto* buffer = driver.mOisFlashData;
                ASSERT_NE(buffer, nullptr);
                for (const uint8_t change :
                     {uint8_t{0}, uint8_t{1}}) {  // a second dump does not see the first
                    auto record = flashRecord(length, base);
                    record.data[0] = change;
                    controller().setFlash(record);
                    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
                    EXPECT_EQ(dumped(kFlash), expectedFile(record));
                    EXPECT_EQ(driver.mOisFlashData, buffer);
                }
                driver.Uninit();
                EXPECT_EQ(driver.mOisFlashData, nullptr);
            }
        }
    }
}

TEST_F(FlashDump, TheTransferComesFirstAndItsResultLast) {
    openQuiet();
    controller().setFlash(flashRecord(8, 0));
    forget();
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_EQ(course(), (Keys{"READ_FLASH", "sleep 2000"}));
    // What travels begins with the pointer and is all of the request.
    ASSERT_EQ(sent().at(0).bytes.size(), 1544U);
    EXPECT_EQ(std::memcmp(sent()[0].bytes.data(), &driver.mOisFlashData, sizeof(void*)), 0);
    char address[64];
    std::snprintf(address, sizeof address, "mOisFlashData_address 0x%08x, size 8\n",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(driver.mOisFlashData)));
    const std::string prefix = "[DumpOisFlashData2File] ";
    const Keys own = messages();
    ASSERT_GE(own.size(), 3U);
    EXPECT_EQ(Keys(own.end() - 3, own.end()),
              (Keys{prefix + "DumpOisFlashData2File 4\n", prefix + "creat ois ic dump file success!\n",
                    prefix + address}));

    struct Case {
        phone::FaultEffect effect;
        int32_t result;
        bool isEmpty;
    };
    driver.Uninit();
    for (const Case& c : {Case{result(5), 5, false}, {failure(), -1, true}}) {
        openQuiet();
        controller().setFlash(flashRecord(8, 0));
        answerRequests(c.effect);
        EXPECT_EQ(driver.DumpOisFlashData2File(), c.result);
        EXPECT_EQ(dumped(kFlash), c.isEmpty ? "" : expectedFile(flashRecord(8, 0)));
        decide = nullptr;
        driver.Uninit();
    }
}

TEST_F(FlashDump, WithoutItsSwitchTheTransferIsAllThereIs) {
    open(dumpModule());
    for (const int dump : {0, 3, 0xfb}) {
        forget();
        driver.mProperty.dump = static_cast<uint8_t>(dump);
        answerRequests(result(7));
        EXPECT_EQ(driver.DumpOisFlashData2File(), 7);
        EXPECT_EQ(sentKeys(), Keys{"READ_FLASH"});
        EXPECT_TRUE(logged("[DumpOisFlashData2File] DumpOisFlashData2File 0\n"));
    }
    EXPECT_FALSE(anythingDumped());
    decide = nullptr;
}

TEST_F(FlashDump, AClosedDeviceOnlyLogs) {
    driver.mProperty.dump = 4;
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_EQ(messages().back(), "[DumpOisFlashData2File] Dev -1 , OIS error opening\n");
    EXPECT_FALSE(anythingDumped());
    // A descriptor of 0 counts as open, though nothing is sent to it.
    openQuiet();
    const int32_t descriptor = std::exchange(driver.fd_driver, 0);
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(dumped(kFlash), "");
    driver.fd_driver = descriptor;
}

TEST_F(FlashDump, BehindTheHubTheTransferIsRelayedAndTheDescriptorMissing) {
    open("korvas4sw-hub");
    driver.mProperty.dump = 4;
    auto* const buffer = driver.mOisFlashData;
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    ASSERT_EQ(sentKeys(), Keys{"COMMAND_28"});
    const auto record = sent()[0].bytes;
    EXPECT_EQ(std::vector<uint8_t>(record.begin(), record.begin() + 4), (std::vector<uint8_t>{28, 60, 0, 0}));
    EXPECT_EQ(std::memcmp(record.data() + 4, &buffer, sizeof buffer), 0);
    EXPECT_EQ(driver.mOisFlashData, buffer);
    EXPECT_TRUE(logged("[DumpOisFlashData2File] Dev -1 , OIS error opening\n"));
    EXPECT_FALSE(anythingDumped());
}

TEST_F(FlashDump, AMissingFolderIsReported) {
    openQuiet();
    removeDumpFolder();
    EXPECT_EQ(driver.DumpOisFlashData2File(), -3);
    EXPECT_EQ(messages().back(), "[DumpOisFlashData2File] creat ois ic dump file failed!\n");
    EXPECT_EQ(sentKeys(), Keys{"READ_FLASH"});
}

TEST_F(FlashDump, TheBringUpDumpsTheModulesFlash) {
    setProperty("dump", 4);
    open(dumpModule());
    const auto text = dumped(kFlash);
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(*text, expectedFile(controller().state().flash));
    EXPECT_EQ(linesOf(*text).size(), 96U);  // 768 bytes
    EXPECT_TRUE(text->starts_with("address: 0x5000  value: 0x"));
}

}  // namespace
