// The dump of the module's OTP memory: which calibration field stands at which address, and what it holds.

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "diagnostics/dump_file.h"
#include "log.h"
#include "ois_drv.h"
#include "wire/otp_fields.h"

namespace {

// OTP addresses are sums of map entries, so they can lie outside the image and below zero.
using OtpAddress = int64_t;

class OtpReader {
  public:
    OtpReader(const ois_otp_data& otp, const ois::OisCustExt& map) : mOtp(otp), mMap(map) {}

    OtpAddress entry(size_t index) const { return mMap.otpAddress[index]; }
    // 0 outside the image.
    uint8_t byteAt(OtpAddress address) const {
        if (address < 0 || address >= static_cast<OtpAddress>(kOtpImageSize)) return 0;
        return mOtp.image[address];
    }
    // The byte at an address of the controller's own space.
    uint8_t controllerByteAt(OtpAddress address) const {
        return byteAt(address - entry(ois::otp::kControllerBase) + entry(ois::otp::kControllerFlag) + 1);
    }

  private:
    const ois_otp_data& mOtp;
    const ois::OisCustExt& mMap;
};

// One line of the dump.
class OtpLine {
  public:
    OtpLine(std::string name, OtpAddress printedAddress) : mText(std::move(name)) {
        mText += "  adress:  0x";
        hex(static_cast<uint64_t>(printedAddress), 2);
        mText += "  value:  ";
    }
    OtpLine& value(uint8_t byte) {
        hex(byte, 2);
        return *this;
    }
    OtpLine& unpaddedValue(uint8_t byte) {
        hex(byte, 1);
        return *this;
    }
    void writeTo(ois::DumpFile& file) {
        mText += '\n';
        file.writeLine(mText);
    }

  private:
    void hex(uint64_t number, int digits) {
        char buffer[20];
        const int length =
            std::snprintf(buffer, sizeof buffer, "%0*llx", digits, static_cast<unsigned long long>(number));
        mText.append(buffer, static_cast<size_t>(length));
    }

    std::string mText;
};

// Every byte from one map entry's address to another's.
void writeRange(const OtpReader& otp, const char* name, size_t first, size_t last, ois::DumpFile& file) {
    OtpLine line(name, otp.entry(first));
    for (OtpAddress address = otp.entry(first); address <= otp.entry(last); ++address)
        line.value(otp.byteAt(address));
    line.writeTo(file);
}

void writeModuleIds(const OtpReader& otp, ois::DumpFile& file) {
    using namespace ois::otp;
    // The second byte of the sensor id alone is not padded.
    OtpLine("sensor_id", otp.entry(kSensorIdLow))
        .value(otp.byteAt(otp.entry(kSensorIdHigh)))
        .unpaddedValue(otp.byteAt(otp.entry(kSensorIdLow)))
        .writeTo(file);
    OtpLine("lens_id", otp.entry(kLensId)).value(otp.byteAt(otp.entry(kLensId))).writeTo(file);
    OtpLine("actuor_id", otp.entry(kActuatorId)).value(otp.byteAt(otp.entry(kActuatorId))).writeTo(file);
    writeRange(otp, "material_id", kMaterialIdFirst, kMaterialIdLast, file);
}

void writeCalibrationFields(const OtpReader& otp, ois::DumpFile& file) {
    for (const ois::otp::Field& field : ois::otp::kCalibrationFields) {
        OtpLine line(field.name, otp.entry(field.printedEntry));
        for (OtpAddress i = 0; i < field.firstCount; ++i) {
            line.value(otp.controllerByteAt(otp.entry(field.firstEntry) + i));
        }
        if (field.secondEntry != ois::otp::kNoEntry) {
            line.value(otp.controllerByteAt(otp.entry(field.secondEntry)));
        }
        line.writeTo(file);
    }
}

// Words are printed most significant byte first.
void writeWordTable(const OtpReader& otp, const ois::otp::WordTable& table, ois::DumpFile& file) {
    const OtpAddress start = otp.entry(table.startEntry);
    const OtpAddress end = otp.entry(table.endEntry);
    const OtpAddress size = end - start + 1;
    if (start == 0 || end == 0 || start == end || size < ois::otp::kWordSize) return;
    for (OtpAddress word = 0; word < size / ois::otp::kWordSize; ++word) {
        const OtpAddress lowest = start + ois::otp::kWordSize * word;
        const OtpAddress highest = lowest + ois::otp::kWordSize - 1;
        OtpLine line(table.name + std::to_string(word), highest);
        for (OtpAddress address = highest; address >= lowest; --address)
            line.value(otp.controllerByteAt(address));
        line.writeTo(file);
    }
}

}  // namespace

void OISDrv::GetOisOtpData(ois_otp_data* otp) {
    if (otp == nullptr) return;
    mOtpData = *otp;
    if ((mProperty.dump & kDumpOtp) != 0) DumpOtp2File();
}

int32_t OISDrv::DumpOtp2File() {
    using namespace ois::otp;
    const std::string path = dumpPath(ois::kOtpFileSuffix);
    ois::DumpFile file(path);
    if (!file.isOpen()) {
        OIS_LOG(kError, "creat ois otp dump file failed!");
        return ois::kOtpDumpNotCreated;
    }
    OIS_LOG(kInfo, "open_DumpOtp2File_success, %s\n", path.c_str());

    const OtpReader otp(mOtpData, mOisCustExt);
    if (otp.byteAt(0) != 0) writeModuleIds(otp, file);
    if (otp.byteAt(otp.entry(kFuseIdFlag)) != 0) writeRange(otp, "fuse_id", kFuseIdFirst, kFuseIdLast, file);
    if (otp.byteAt(otp.entry(kSerialFlag)) != 0) writeRange(otp, "SN", kSerialFirst, kSerialLast, file);
    if (otp.byteAt(otp.entry(kControllerFlag) + 1) != 0) {
        writeCalibrationFields(otp, file);
        for (const WordTable& table : kWordTables) writeWordTable(otp, table, file);
    }
    return 0;
}
