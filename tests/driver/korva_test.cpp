// The checksum of firmware images.

#include <random>

#include "driver/driver_fixture.h"

namespace {

using driver_test::bytes;
using Korva = driver_test::DriverTest;

TEST_F(Korva, ChecksumIsTheWrappingWordSum) {
    const auto sum = [&](const std::vector<uint8_t>& image) {
        return driver.korvas4sw_fw_checksum(image.data(), static_cast<uint16_t>(image.size()));
    };
    EXPECT_EQ(driver.korvas4sw_fw_checksum(nullptr, 1), 0);
    EXPECT_EQ(sum(bytes("34 12 77")), 0x1234);
    EXPECT_EQ(sum(bytes("ff ff 01 00")), 0);
    EXPECT_EQ(sum(std::vector<uint8_t>(32, 0xff)), 0xfff0);

    std::mt19937 random(5);
    for (size_t size = 0; size <= 65535; size += size < 200 || size >= 65530 ? 1 : 6533) {
        // At an odd address, and exactly that many bytes, so that a read past the end is one past an
        // allocation.
        std::vector<uint8_t> image(size + 1);
        for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
        unsigned expected = 0;
        for (size_t i = 1; i + 1 < image.size(); i += 2) expected += image[i] + 256U * image[i + 1];
        EXPECT_EQ(driver.korvas4sw_fw_checksum(image.data() + 1, static_cast<uint16_t>(size)),
                  expected % 65536U)
            << size;
    }
}

}  // namespace
