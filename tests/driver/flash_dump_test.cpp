// The dump of the controller's flash data.

#include <sstream>

#include "driver/dump_fixture.h"

namespace {

using driver_test::DumpTest;
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
    const auto check = [this](FlashAnswer how, uint32_t length, uint32_t base) {
        SCOPED_TRACE(std::to_string(length) + ' ' + std::to_string(base));
        openQuiet();
        controller().setFlashAnswer(how);
        const auto* buffer = driver.mOisFlashData;
        ASSERT_NE(buffer, nullptr);
        auto record = flashRecord(length, base);
        for (const uint8_t change : {uint8_t{0}, uint8_t{1}}) {  // a second dump does not see the first
            record.data[0] = change;
            controller().setFlash(record);
            EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
            EXPECT_EQ(dumped(kFlash), expectedFile(record));
            EXPECT_EQ(driver.mOisFlashData, buffer);
        }
        driver.Uninit();
        EXPECT_EQ(driver.mOisFlashData, nullptr);
    };
    for (const uint32_t length : {0U, 1U, 8U, 9U, 1528U, 1529U, 1536U, 1537U, 4096U, 0xffffffffU}) {
        for (const uint32_t base : {0x5000U, 0xfffffffcU}) {
            check(FlashAnswer::kInPlace, length, base);
            check(FlashAnswer::kThroughPointer, length, base);
        }
    }
}

TEST_F(FlashDump, TheTransferComesFirst) {
    openQuiet();
    EXPECT_EQ(driver.DumpOisFlashData2File(), 0);
    EXPECT_EQ(course(), (Keys{"READ_FLASH", "sleep 2000"}));
    // What travels begins with the pointer and is all of the request.
    ASSERT_EQ(sent().at(0).bytes.size(), 1544U);
    EXPECT_EQ(std::memcmp(sent()[0].bytes.data(), &driver.mOisFlashData, sizeof(void*)), 0);
    char address[64];
    std::snprintf(address, sizeof address, "mOisFlashData_address 0x%08x, size 8\n",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(driver.mOisFlashData)));
    EXPECT_TRUE(logged("[DumpOisFlashData2File] creat ois ic dump file success!\n"));
    EXPECT_EQ(messages().back(), std::string("[DumpOisFlashData2File] ") + address);
}

TEST_F(FlashDump, TheSwitchDecidesOnTheFileAndTheTransferOnTheResult) {
    struct Case {
        const char* fault;
        uint8_t dump;
        int32_t result;
        std::optional<std::string> file;
    };
    const auto record = flashRecord(8, 0);
    for (const Case& c : {Case{"READ_FLASH:result=7", 0, 7, {}},
                          {"READ_FLASH:result=7", 3, 7, {}},
                          {"READ_FLASH:result=7", 0xfb, 7, {}},
                          {"READ_FLASH:result=5", 4, 5, expectedFile(record)},
                          {"READ_FLASH:errno=EIO", 4, -1, ""}}) {
        SCOPED_TRACE(c.fault);
        open(dumpModule());
        controller().setFlash(record);
        phone.faults().clear();
        fault(c.fault);
        driver.mProperty.dump = c.dump;
        EXPECT_EQ(driver.DumpOisFlashData2File(), c.result);
        EXPECT_EQ(sentKeys(), Keys{"READ_FLASH"});
        EXPECT_TRUE(logged("[DumpOisFlashData2File] DumpOisFlashData2File " + std::to_string(c.dump & 4)));
        EXPECT_EQ(dumped(kFlash), c.file);
        driver.Uninit();
    }
}

TEST_F(FlashDump, ADescriptorOfZeroCountsAsOpenThoughNothingIsSentToIt) {
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
    EXPECT_EQ(sent()[0].head(4), (std::vector<uint8_t>{28, 60, 0, 0}));
    EXPECT_EQ(std::memcmp(&sent()[0].bytes[4], &buffer, sizeof buffer), 0);
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

}  // namespace
