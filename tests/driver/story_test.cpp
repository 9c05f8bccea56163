// Stories: sections of tests/driver/courses/*.txt that say what is done as well as what happens. Everything
// that passes between two steps is held against the lines between them, and each result against the one that
// stands behind its step.
//
//   > open dw9786 accSupport=1     fits that module, but for what is said of it, and brings the driver up
//   > NotifyStream null -> 0       a public operation, its arguments, its result
//   > SetMode 2 mOisMode=3 -> 0 mOisMode=2
//                                  with a member set before it, and read behind it
//   ioctl 400456c2 02000000 -> 0   what happened, as course.h has it
//
// The steps, and the names that can be set and read, are the tables below. What a step does not name stays as
// the steps before left it.

#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <variant>

#include "driver/driver_fixture.h"

namespace {

using driver_test::bytes;
using driver_test::courseBytes;
using Words = std::vector<std::string>;
using Step = std::function<std::string(const Words&)>;

using Section = std::pair<std::string, std::string>;  // file and name

// The sections with a step in them.
std::vector<Section> stories() {
    std::vector<Section> found;
    for (const auto& entry : std::filesystem::directory_iterator(OIS_SOURCE_DIR "/tests/driver/courses")) {
        std::ifstream stream(entry.path());
        Section section{entry.path().stem(), {}};
        bool taken = false;
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with('[')) {
                section.second = line.substr(1, line.find(']') - 1);
                taken = false;
            } else if (line.starts_with("> ") && !taken) {
                found.push_back(section);
                taken = true;
            }
        }
    }
    std::ranges::sort(found);
    return found;
}

using Field = std::variant<int32_t*, uint32_t*, uint16_t*, uint8_t*, float*, char (*)[16], char (*)[32]>;

void setField(const Field& field, const std::string& text) {
    const auto set = [&text](auto* target) {
        using Value = std::remove_pointer_t<decltype(target)>;
        if constexpr (std::is_array_v<Value>) {
            std::ranges::fill(*target, '\0');
            std::ranges::copy(text, *target);
        } else if constexpr (std::is_same_v<Value, float>) {
            *target = std::stof(text);
        } else {
            *target = static_cast<Value>(std::stoll(text, nullptr, 0));
        }
    };
    std::visit(set, field);
}

std::string fieldText(const Field& field) {
    std::ostringstream text;
    std::visit([&text](auto* value) { text << +*value; }, field);
    return text.str();
}

// What a firmware image holds but for its version.
constexpr uint8_t kErased[] = {0xff};

int32_t number(const Words& words, size_t index) {
    return static_cast<int32_t>(std::stoll(words.at(index), nullptr, 0));
}

// What the next reads of a register, or the next commands of a name, are answered with, as far as it goes.
class Answers {
  public:
    void add(const std::string& name, const std::vector<uint8_t>& answer) {
        const std::lock_guard lock(mMutex);
        mAnswers[name].push_back(answer);
    }
    std::optional<phone::FaultEffect> take(std::string_view key, std::span<const uint8_t> input) {
        const std::lock_guard lock(mMutex);
        auto& answers =
            mAnswers[key == "READ_REGISTER" ? courseBytes({input[5], input[4]}) : std::string(key)];
        if (answers.empty()) return std::nullopt;
        phone::FaultEffect effect{.kind = phone::FaultEffect::Kind::kGarbage, .bytes = answers.front()};
        // Of the hall record only the position comes from the controller.
        if (key == "GET_HALL") effect.bytes.insert(effect.bytes.begin(), input.begin(), input.begin() + 16);
        answers.pop_front();
        return effect;
    }

  private:
    std::mutex mMutex;
    std::map<std::string, std::deque<std::vector<uint8_t>>> mAnswers;
};

class Story : public driver_test::DriverTest, public ::testing::WithParamInterface<Section> {
  protected:
    Story() {
        request.ois_mode_from_tag = 1;
        request.engineer_operation = -1;
        request.zoom_ratio = 1;
        decide = [answers = mAnswers](phone::FaultPoint, std::string_view key,
                                      std::span<const uint8_t> input) { return answers->take(key, input); };
    }

    void play(const std::string& lines) {
        std::string happened;
        std::istringstream stream(lines);
        for (std::string line; std::getline(stream, line);) {
            if (!line.starts_with("> ")) continue;
            happened += course();
            happened += carryOut(line) + '\n';
        }
        happened += course();
        // The first slot is indeterminate, as its message's arguments do not fit; the second is the
        // machine's.
        EXPECT_EQ(lines,
                  std::regex_replace(
                      happened, std::regex("(error_y \\(|Open subdev : |fd_driver\\](?!-))-?[0-9]+"), "$1?"));
    }

  private:
    // Shows the step with what it resulted in.
    std::string carryOut(const std::string& line) {
        const std::string head = line.substr(0, line.find(" -> "));
        std::istringstream stream(head.substr(2));
        std::string name;
        stream >> name;
        if (!mSteps.contains(name)) throw std::invalid_argument("no such step: " + line);
        Words words;
        Words settings;
        for (std::string word; stream >> word;) {
            const bool isText = name == "fault" || name == "chip";
            if (word.find('=') != std::string::npos && !isField(word) && !isText) {
                throw std::invalid_argument("no such name: " + word + " of " + line);
            }
            (isField(word) ? settings : words).push_back(word);
        }
        const bool describesModule = name == "module" || name == "fit" || name == "open";
        if (describesModule && !words.empty()) module = phone::moduleByName(words[0]);
        for (const std::string& setting : settings) {
            setField(mFields.at(nameOf(setting)), setting.substr(setting.find('=') + 1));
        }
        std::string shown = mSteps.at(name)(words);
        if (head == line) return shown.empty() ? head : head + " -> " + shown;
        std::istringstream results(line.substr(head.size()));
        for (std::string word; results >> word;) {
            if (isField(word)) {
                shown +=
                    (shown.empty() ? "" : " ") + nameOf(word) + '=' + fieldText(mFields.at(nameOf(word)));
            }
        }
        return head + " -> " + shown;
    }
    static std::string nameOf(const std::string& word) { return word.substr(0, word.find('=')); }
    bool isField(const std::string& word) const { return mFields.contains(nameOf(word)); }

    // --- Steps

    Step call(int32_t (OISDrv::*operation)()) {
        return [=, this](const Words&) { return std::to_string((driver.*operation)()); };
    }
    Step call(int32_t (OISDrv::*operation)(int32_t)) {
        return [=, this](const Words& w) { return std::to_string((driver.*operation)(number(w, 0))); };
    }
    Step call(int32_t (OISDrv::*operation)(int32_t, int32_t)) {
        return [=, this](const Words& w) {
            return std::to_string((driver.*operation)(number(w, 0), number(w, 1)));
        };
    }
    Step call(void (OISDrv::*operation)()) {
        return does([=, this](const Words&) { (driver.*operation)(); });
    }
    // With the record that the caller keeps, or "null".
    template <typename Record>
    Step callWith(int32_t (OISDrv::*operation)(Record*), Record& record) {
        return [=, this, &record](const Words& words) {
            return std::to_string((driver.*operation)(words.empty() ? &record : nullptr));
        };
    }
    static Step does(const std::function<void(const Words&)>& action) {
        return [action](const Words& words) {
            action(words);
            return std::string();
        };
    }
    // A command given by hand: id, input or "null", bytes wanted back. Shows the bytes that came back.
    Step give(int32_t (OISDrv::*command)(int32_t, void*, void*, int32_t, int32_t)) {
        return [=, this](const Words& words) {
            const bool null = words.at(1) == "null";
            std::vector<uint8_t> in = null ? bytes("00000000") : bytes(words[1]);
            std::vector<uint8_t> out(static_cast<size_t>(number(words, 2)), 0xee);
            const int32_t result = (driver.*command)(
                number(words, 0), null ? nullptr : in.data(), out.empty() ? nullptr : out.data(),
                static_cast<int32_t>(in.size()), static_cast<int32_t>(out.size()));
            return std::to_string(result) + (out.empty() ? "" : " " + courseBytes(out));
        };
    }
    std::string setOisParams(const Words& words) {
        int32_t stale = 0;
        request.op_result_ptr = &stale;
        const int32_t result = driver.SetOisParams(words.empty() ? &request : nullptr);
        answered = request.op_result_ptr == &stale ? -1 : request.op_result_ptr == &request.op_result;
        return std::to_string(result);
    }
    void idleChip() {
        phone.hub().chip().held()->write(0x0000, 1, 0);
        phone.clock().sleepUs(50000);
        forget();
    }

    phone::ModuleDescription module = phone::moduleByName("dw9786");  // that is opened next
    ois_params request{};
    ois_focus_params focus{};
    ois_stream_info info{};
    ois_cfg_data cfg{};
    ois_acc_params acc{};
    int32_t answered = 0;  // the request's op_result_ptr: 1 set, 0 null, -1 not looked at
    std::shared_ptr<Answers> mAnswers = std::make_shared<Answers>();

    // A table of many short entries, several to a line.
    // clang-format off
#define M(object, name) {#name, &(object).name}
    const std::map<std::string, Field> mFields = {
        // the driver
        M(driver, fd_driver), M(driver, m_user_count), M(driver, mAccParams.count),
        M(driver, mAccParams.distance), M(driver, mAccParams.distanceF), M(driver, mAccParams.distanceQ31),
        M(driver, mAccParams.enable), M(driver, mAccParams.lastDistance), M(driver, mActOisIoctlState),
        M(driver, mActuatorDefectError), M(driver, mDefectDetectDone), M(driver, mFixMode.gethall),
        M(driver, mFixMode.hall_x), M(driver, mFixMode.hall_y), M(driver, mFixMode.manualEnable),
        M(driver, mFixMode.target_x), M(driver, mFixMode.target_y), M(driver, mIsOisSupport),
        M(driver, mLastAfPosition), M(driver, mLastEngOperation), M(driver, mLastTemp),
        M(driver, mOisCustInfo.useSensorHub), M(driver, mOisDynamic), M(driver, mOisErrorFlag), M(driver, mOisExtraParam), M(driver, mOisGain.axis),
        M(driver, mOisGain.unused), M(driver, mOisGain.valueXf), M(driver, mOisGain.valueXi),
        M(driver, mOisGain.valueYf), M(driver, mOisGain.valueYi), M(driver, mOisMode),
        M(driver, mOisParams.act_scene), M(driver, mOisParams.scenario), M(driver, mOisParams.video_mode), M(driver, mOisTempStrategy),
        M(driver, mParamsCallCount), M(driver, mPreviousActEn), M(driver, mProperty.actOis),
        M(driver, mProperty.dump), M(driver, mProperty.fixTarget), M(driver, mProperty.isRun),
        M(driver, mProperty.manual), M(driver, mProperty.manualMode), M(driver, mProperty.statusCheck),
        M(driver, mSensorHubEnabled), M(driver, mSineParam.amplitudeX), M(driver, mSineParam.amplitudeY),
        M(driver, mSineParam.enable), M(driver, mSineParam.frequency), M(driver, mStreamState),
        M(driver, mUseCustomCmd),
        // the module that is opened next
        M(module.custInfo, accDistance), M(module.custInfo, accSupport), M(module.custInfo, actOisAngle),
        M(module.custInfo, actOisSupport), M(module.custInfo, actuatorDetectSupport),
        M(module.custInfo, camera_type), M(module.custInfo, cameraTypeName),
        M(module.custInfo, coordinateNum), M(module.custInfo, extraParamSupport),
        M(module.custInfo, gainFormat), M(module.custInfo, max_error_threshold),
        M(module.custInfo, max_sum_error_threshold), M(module.custInfo, mOisIcName),
        M(module.custInfo, streamOnDelay), M(module.custInfo, zoomActOisSupport),
        M(module.custInfo, zoomScale), M(module, clockHz), M(module, firmwareVersion),
        M(module, gain.valueXf), M(module, gain.valueXi), M(module, gain.valueYf), M(module, gain.valueYi),
        M(module, hallInfo.centerX), M(module, hallInfo.centerY),
        // the records of the caller
        M(*this, acc.distanceF), M(*this, acc.enable), M(*this, answered), M(*this, cfg.SensorMode),
        M(*this, focus.distance), M(*this, focus.distanceValid), M(*this, focus.focusDiopter),
        M(*this, focus.useFocus), M(*this, request.act_scene), M(*this, request.capture_en),
        M(*this, request.capture_value), M(*this, request.engineer_mode),
        M(*this, request.engineer_operation), M(*this, request.extra_param),
        M(*this, request.ois_mode_from_tag), M(*this, request.op_result), M(*this, request.scenario),
        M(*this, request.scenario_flag), M(*this, request.sensor_dev), M(*this, request.video_mode),
        M(*this, request.zoom_ratio), M(*this, request.zoom_scale_en), M(*this, info.notify_stream),
    };
#undef M
    // clang-format on

    const std::map<std::string, Step> mSteps = {
        // the phone
        {"module", does([](const Words&) {})},
        {"fit", does([this](const Words&) { fit(module), forget(); })},
        {"open", does([this](const Words&) { open(module); })},
        {"close", does([this](const Words&) {
             while (driver.m_user_count > 0) driver.Uninit();
             forget();
         })},
        {"set", does([](const Words&) {})},
        {"coordinate", does([this](const Words& w) {
             module.custInfo.coordinateX[module.custInfo.coordinateNum] = std::stof(w.at(0));
             module.custInfo.coordinateY[module.custInfo.coordinateNum++] = std::stof(w.at(1));
         })},
        {"property",
         does([this](const Words& w) { phone.properties().set("vendor.debug.ois." + w.at(0), w.at(1)); })},
        {"fault", does([this](const Words& w) { fault(w.at(0)); })},
        {"repair", does([this](const Words&) { phone.faults().clear(); })},
        {"poke", does([this](const Words& w) {
             phone.hub().chip().held()->poke(static_cast<uint32_t>(number(w, 0)),
                                             static_cast<uint32_t>(number(w, 1)),
                                             static_cast<uint32_t>(number(w, 2)));
         })},
        {"idle-chip", does([this](const Words&) { idleChip(); })},
        {"firmware", does([this](const Words& w) {
             phone.hub().setFirmware(
                 phone::FirmwareImage::fromBytes(kErased, static_cast<uint32_t>(number(w, 0))));
         })},
        {"answers", does([this](const Words& w) {
             for (size_t i = 1; i < w.size(); ++i) mAnswers->add(w[0], bytes(w[i]));
         })},
        {"thermal", does([this](const Words& w) { phone.files().setThermal(w.empty() ? "" : w[0]); })},
        {"region",
         does([this](const Words& w) { phone.properties().set("ro.product.country.region", w.at(0)); })},
        {"no-folder",
         does([this](const Words&) { std::filesystem::remove_all(phone.files().dumpFolder()); })},
        {"no-provider", does([this](const Words&) { driver.mpSensorProvider = nullptr, forget(); })},
        {"wait", does([this](const Words& w) { phone.clock().sleepUs(number(w, 0)); })},
        // the driver
        {"Init", call(&OISDrv::Init)},
        {"Uninit", call(&OISDrv::Uninit)},
        {"SetMode", call(&OISDrv::SetMode)},
        {"SetOperation", call(&OISDrv::SetOperation)},
        {"EnableOis", call(&OISDrv::EnableOis)},
        {"CheckIcStatus", call(&OISDrv::CheckIcStatus)},
        {"SetOisParams", [this](const Words& words) { return setOisParams(words); }},
        {"SetOisCfgData", callWith(&OISDrv::SetOisCfgData, cfg)},
        {"GetOisInfo", [this](const Words&) { return std::to_string(driver.GetOisInfo(nullptr)); }},
        {"SetFixMode", call(&OISDrv::SetFixMode)},
        {"GetHall", call(&OISDrv::GetHall)},
        {"SetActOis",
         [this](const Words& w) {
             return std::to_string(driver.SetActOis({number(w, 0), static_cast<uint32_t>(number(w, 1))}));
         }},
        {"SetActOisBySoftTrigger", call(&OISDrv::SetActOisBySoftTrigger)},
        {"GimbalCalibration", call(&OISDrv::GimbalCalibration)},
        {"NotifyStream", callWith(&OISDrv::NotifyStream, info)},
        {"SetAccParam",
         [this](const Words& words) {
             return std::to_string(driver.SetAccParam(words.empty() ? reinterpret_cast<long>(&focus) : 0));
         }},
        {"SetOisAFdriftParams", call(&OISDrv::SetOisAFdriftParams)},
        {"update_temp_cmp", call(&OISDrv::update_temp_cmp)},
        {"UpdateTempStrategy", call(&OISDrv::UpdateTempStrategy)},
        // mode 2, by the request's code and the hub's id
        {"ConfigOisTransfer",
         [this](const Words&) {
             int32_t mode = 2;
             return std::to_string(driver.ConfigOisTransfer(0x400456c2, 4, &mode, nullptr, sizeof mode, 0));
         }},
        {"CustomCmdPackage", give(&OISDrv::CustomCmdPackage)},
        {"KorvaCmdParse", give(&OISDrv::KorvaCmdParse)},
        {"korvas4sw_set_mode", call(&OISDrv::korvas4sw_set_mode)},
        {"korvas4sw_set_acc", callWith(&OISDrv::korvas4sw_set_acc, acc)},
        {"korvas4sw_set_idle", call(&OISDrv::korvas4sw_set_idle)},
        {"korvas4sw_init_pid", call(&OISDrv::korvas4sw_init_pid)},
        {"korvas4sw_set_offset_calibration", call(&OISDrv::korvas4sw_set_offset_calibration)},
        {"korvas4sw_flash_save", call(&OISDrv::korvas4sw_flash_save)},
        {"FirmwareUpdate", call(&OISDrv::FirmwareUpdate)},
        {"check_ois_clock",
         does([this](const Words&) { driver.check_ois_clock(); })},  // its result means nothing
        {"InitDrv", call(&OISDrv::InitDrv)},
        {"GetDataRuvex", call(&OISDrv::GetDataRuvex)},
        {"GetSensorData", call(&OISDrv::GetSensorData)},
        {"DumpGyroAccRawTargetHallData2File", call(&OISDrv::DumpGyroAccRawTargetHallData2File)},
        {"update_fw_func", call(&OISDrv::update_fw_func)},
        {"DetectActutorDefect", call(&OISDrv::DetectActutorDefect)}};
};

// Every block of a firmware image, in turn.
std::string download() {
    std::ostringstream lines;
    for (int block = 0; block < 112; ++block) {
        lines << "firmware 1 " << std::hex << block * 256 << std::dec << " 100\n"
              << "android D/OisDrv \"flash[" << block << "] write: address " << block * 256
              << ", success (0)\"\nsleep 15000\n";
    }
    std::string text = lines.str();
    text.pop_back();
    return text;
}

TEST_P(Story, HappensAsWritten) {
    play(driver_test::writtenCourse(GetParam().first, GetParam().second, {{"download", download()}}));
}
INSTANTIATE_TEST_SUITE_P(Courses, Story, ::testing::ValuesIn(stories()), [](const auto& story) {
    std::string name = story.param.first + ' ' + story.param.second;
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

}  // namespace
