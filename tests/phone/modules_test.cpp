// Module descriptions: what is read, what is refused, what is doubted.

#include <algorithm>
#include <string>
#include <utility>

#include "driver/driver_fixture.h"
#include "modules/module_checks.h"
#include "test_support.h"
#include "trace/decode.h"

namespace {

using test_support::thrown;

class ModulesTest : public driver_test::DriverTest {};

// What the driver derives from gains and hall calibration is what the lens does.
TEST_F(ModulesTest, CalibrationOfEveryModuleAgreesWithItsLens) {
    for (const char* name : {"korvas4sw-subdev", "dw9781", "dw9786"}) {
        SCOPED_TRACE(name);
        const phone::StabiliserSettings lens = phone::moduleByName(name).stabiliser;
        open(name);
        const auto& derived = driver.mOisCalibInfo;
        EXPECT_NEAR(derived.hall_amplitude_x, lens.hallPerAngleX, 0.01);
        EXPECT_NEAR(derived.hall_amplitude_y, lens.hallPerAngleY, 0.01);
        EXPECT_EQ(derived.hall_center_x, lens.hallCenterX);
        EXPECT_EQ(derived.hall_center_y, lens.hallCenterY);
        driver.Uninit();
    }
}

TEST_F(ModulesTest, AWrongDescriptionIsRefusedWithLineAndReason) {
    const std::string head =
        "name = \"x\"\n[customisation]\ndriverName = \"x\"\ngainFormat = 1\nmOisIcName = "
        "\"x\"\ncameraTypeName = \"x\"\n";
    EXPECT_EQ(thrown([&] { phone::parseModule(head, "x.toml"); }), "");
    const std::pair<std::string, std::string> cases[] = {
        {"name = ", "1: "},
        {"summary = \"x\"\n", "1: name is missing: tools refer to the module by it"},
        {head + "gainFormt = 1\n", "7: customisation.gainFormt is no field here; did you mean 'gainFormat'?"},
        {head + "streamOnDelay = 65536\n",
         "7: customisation.streamOnDelay is 65536; it may be an integer, 0 to 65535"},
        {head + "[stabiliser]\ngyroBiasRadS = [0, 1]\n",
         "8: stabiliser.gyroBiasRadS is an array of 2; it may be an array of 3"},
        {head + "coordinateX = [\n1, 2,\n\"a\"]\n", "9: customisation.coordinateX holds \"a\""},
        {head + "coordinateX = [1, 2]\ncoordinateY = [1]\n", "8: customisation.coordinateY has 1 values"},
        {head + "mOisIcName = \"" + std::string(32, 'x') + "\"\n", "7: "},
        {head + "[otp.address]\nSN = [2100, 2112]\n",
         "8: otp.address.SN is not in the memory, which reaches from 0 to 2111"},
    };
    for (const auto& [text, reason] : cases) {
        const std::string said = thrown([&text = text] { phone::parseModule(text, "x.toml"); });
        EXPECT_EQ(said.find("x.toml:" + reason), 0U) << text << "\n-> " << said;
    }
}

// A block whose fields all differ, read and decoded.
TEST_F(ModulesTest, EveryFieldOfTheCustomisationLandsWhereTheDriverReadsIt) {
    const ois::OisCustInfo info = phone::parseModule(R"(
        name = "x"
        [customisation]
        driverName = "x"
        gainFormat = 3
        hallRange = 2
        streamOnDelay = 65535
        useSensorHub = 200
        angleAmplitude = 0.5
        actOisAngle = -1.25
        coordinateX = [1.5, 2]
        coordinateY = [-3, 4]
        mOisIcName = "chip"
        cameraTypeName = "sixteen letters."
    )",
                                                     "x.toml")
                                      .custInfo;
    EXPECT_EQ(info.gainFormat, 3);
    EXPECT_EQ(info.hallRange, 2);
    EXPECT_EQ(info.streamOnDelay, 65535);
    EXPECT_EQ(info.useSensorHub, 200);
    EXPECT_EQ(info.angleAmplitude, 0.5F);
    EXPECT_EQ(info.actOisAngle, -1.25F);
    EXPECT_EQ(info.coordinateNum, 2);
    EXPECT_EQ(info.coordinateX[1], 2);
    EXPECT_EQ(info.coordinateY[0], -3);
    EXPECT_STREQ(info.mOisIcName, "chip");
    EXPECT_EQ(std::string(info.cameraTypeName, 16), "sixteen letters.");
}

// What is changed in a sound description, and what is then doubted.
TEST_F(ModulesTest, DoubtfulValuesAreNamed) {
    for (const phone::ModuleDescription& shipped : phone::shippedModules()) {
        EXPECT_EQ(phone::doubtsAbout(shipped), std::vector<std::string>{}) << shipped.name;
        EXPECT_EQ(phone::parseModule(phone::moduleText(shipped.name), "x.toml").name, shipped.name);
    }
    using Module = phone::ModuleDescription;
    const std::pair<void (*)(Module&), const char*> cases[] = {
        {[](Module& m) { m.driverName.clear(); }, "driverName is empty"},
        {[](Module& m) { m.entityName = "lens 4-0069"; }, "controller.entityName is \"lens 4-0069\""},
        {[](Module& m) { m.custInfo.mOisIcName[0] = 'D'; }, "mOisIcName is \"Dw9786\""},
        {[](Module& m) { m.custInfo.cameraTypeName[0] = '/'; }, "cameraTypeName is \"/ele\""},
        {[](Module& m) { m.gain.valueXi = 0; }, "controller.gain.valueXi is 0, and gainFormat 3 reads it"},
        {[](Module& m) { m.hallInfo.lowerWord = m.hallInfo.upperWord; }, "driver's hall amplitude inf of x"},
        {[](Module& m) { std::swap(m.hallInfo.lowerWord, m.hallInfo.upperWord); }, "are crossed"},
        {[](Module& m) { m.custInfo.gainFormat = ois::kGainInteger; }, "overflows"},
        {[](Module& m) { m.custInfo.gainFormat = ois::kGainFloat; }, "the other coding does not count"},
        {[](Module& m) { m.custInfo.coordinateNum = 0; }, "coordinateNum is 0"},
        {[](Module& m) { m.custInfo.max_error_threshold = 0; }, "max_error_threshold is 0"},
        {[](Module& m) { m.custInfo.coordinateY[3] = 1e5F; }, "test position 3 at 450, 100000"},
        {[](Module& m) { m.custInfo.actOisSupport = 2; }, "actOisSupport is 2"},
        {[](Module& m) { m.custInfo.camera_type = 3; }, "camera_type is 3"},
        {[](Module& m) { m.custInfo.accDistance = 0; }, "accDistance is 0"},
        {[](Module& m) { m.custInfo.useSensorHub = 1; }, "zoomActOisSupport is 1"},
    };
    for (const auto& [change, doubt] : cases) {
        Module module = phone::moduleByName("dw9786");
        change(module);
        const std::vector<std::string> doubts = phone::doubtsAbout(module);
        EXPECT_TRUE(std::ranges::any_of(
            doubts,
            [&doubt = doubt](const std::string& text) { return text.find(doubt) != std::string::npos; }))
            << doubt << (doubts.empty() ? "" : "\n" + doubts[0]);
    }
}

}  // namespace
