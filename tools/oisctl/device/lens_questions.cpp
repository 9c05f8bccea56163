#include "device/lens_questions.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "device/descriptor.h"
#include "wire/records.h"
#include "wire/requests.h"

namespace oisctl {

namespace {

using ois::Request;
using phone::ModuleDescription;
using Bytes = std::vector<uint8_t>;
using Expected = std::vector<ExpectedField>;

constexpr int64_t kFlashSettleUs = 2000;  // as long as the driver gives a kernel that follows the pointer
constexpr uint8_t kStatusLevel = 15;      // what the driver asks for, unless a property says otherwise

// A kernel that follows the pointer may write late: this stays for as long as the process does.
ois::OisFlashRecord gFlash;

template <typename Record>
Bytes copyOf(const Record& record) {
    const auto* begin = reinterpret_cast<const uint8_t*>(&record);
    return {begin, begin + sizeof record};
}

ExpectedField exactly(std::string name, double value) {
    return {std::move(name), value, value};
}

// Where a hall sensor may read, as far as the description says where the lens can go.
Expected withinTravel(const ModuleDescription& module) {
    constexpr double kNoise = 5;  // standard deviations
    const phone::StabiliserSettings& lens = module.stabiliser;
    const auto range = [&](const char* name, int32_t centre, double hallPerAngle) {
        const double reach = lens.limitAngle * std::abs(hallPerAngle) + kNoise * lens.hallNoiseCounts;
        return ExpectedField{name, std::floor(centre - reach), std::ceil(centre + reach)};
    };
    return {range("hall_x", lens.hallCenterX, lens.hallPerAngleX),
            range("hall_y", lens.hallCenterY, lens.hallPerAngleY)};
}

Expected expectedGain(const ModuleDescription& module) {
    if (module.custInfo.gainFormat == ois::kGainFloat)
        return {exactly("valueXf", double{module.gain.valueXf}),
                exactly("valueYf", double{module.gain.valueYf})};
    return {exactly("valueXi", module.gain.valueXi), exactly("valueYi", module.gain.valueYi)};
}

Expected expectedHallInfo(const ModuleDescription& module) {
    Expected expected;
    const Bytes bytes = copyOf(module.hallInfo);
    for (const phone::Field& field :
         phone::decodeRecord(*phone::findRequest(ois::code(Request::kReadHallInfo))->record, bytes)) {
        std::visit(
            [&](const auto& value) {
                if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>)
                    expected.push_back(exactly(field.name, static_cast<double>(value)));
            },
            field.value);
    }
    return expected;
}

struct Question {
    Request request;
    Bytes record;  // as the driver sends it
    Expected expected;
};

std::vector<Question> questionsFor(const ModuleDescription& module) {
    ois::OisFixMode hall{};
    hall.gethall = 1;
    ois::OisStatusRecord status{};
    status.chose = kStatusLevel;
    Bytes flash(sizeof(ois::OisFlashRecord));
    const void* const pointer = &gFlash;
    std::memcpy(flash.data(), &pointer, sizeof pointer);
    return {{Request::kCheckStatus, Bytes(sizeof(uint8_t)), {}},
            {Request::kReadGain, copyOf(ois::OisGain{}), expectedGain(module)},
            {Request::kReadHallInfo, copyOf(ois::OisHallInfo{}), expectedHallInfo(module)},
            {Request::kGetHall, copyOf(hall), withinTravel(module)},
            {Request::kReadStatus, copyOf(status), withinTravel(module)},
            {Request::kReadFlash,
             flash,
             {exactly("length", static_cast<double>(module.flashData.size())),
              exactly("base", module.flashBase)}}};
}

// Where the flash data came back, and there it is then.
FlashAnswer settleFlash(const Bytes& sent, Bytes& record, phone::Clock& clock) {
    if (record != sent) return FlashAnswer::kInPlace;
    clock.sleepUs(kFlashSettleUs);
    const Bytes followed = copyOf(gFlash);
    if (std::ranges::all_of(followed, [](uint8_t byte) { return byte == 0; })) return FlashAnswer::kNone;
    record = followed;
    return FlashAnswer::kThroughPointer;
}

LensAnswer ask(const Descriptor& lens, Question question, phone::Clock& clock) {
    LensAnswer answer{.request = phone::findRequest(ois::code(question.request)),
                      .expected = std::move(question.expected)};
    Bytes record = question.record;
    const int64_t startUs = clock.nowUs();
    answer.error = lens.ask(ois::code(question.request), record.data());
    answer.timeUs = clock.nowUs() - startUs;
    if (answer.error != 0) return answer;
    if (question.request == Request::kReadFlash) {
        answer.flash = settleFlash(question.record, record, clock);
        if (answer.flash == FlashAnswer::kNone) return answer;
    }
    if (!answer.request->reads) return answer;
    const auto& layout = answer.request->record->fields;
    for (phone::Field& field : phone::decodeRecord(*answer.request->record, record)) {
        const auto told = std::ranges::find(layout, field.name, &phone::RecordField::name);
        if (told->answered) answer.fields.push_back(std::move(field));
    }
    return answer;
}

// Empty where the field is no number.
double numberOf(const phone::Field& field) {
    return std::visit(
        [](const auto& value) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>)
                return static_cast<double>(value);
            return std::nan("");
        },
        field.value);
}

}  // namespace

bool LensAnswer::asExpected() const {
    return std::ranges::all_of(expected, [this](const ExpectedField& want) {
        const auto got = std::ranges::find(fields, want.name, &phone::Field::name);
        return got != fields.end() && numberOf(*got) >= want.least && numberOf(*got) <= want.greatest;
    });
}

LensReport askLens(const std::string& node, const ModuleDescription& module, phone::Clock& clock) {
    const Descriptor lens(node, O_RDWR | O_CLOEXEC);
    LensReport report{.openError = lens.error()};
    if (report.openError != 0) return report;
    gFlash = {};
    for (Question& question : questionsFor(module))
        report.answers.push_back(ask(lens, std::move(question), clock));
    return report;
}

NodeRights rightsOf(const std::string& node) {
    struct stat status {};
    if (stat(node.c_str(), &status) != 0) return {};
    NodeRights rights;
    constexpr std::string_view kLetters = "rwxrwxrwx";
    for (size_t i = 0; i < kLetters.size(); ++i)
        rights.mode += (status.st_mode & (1U << (kLetters.size() - 1 - i))) != 0 ? kLetters[i] : '-';
    const passwd* const owner = getpwuid(status.st_uid);
    const group* const group = getgrgid(status.st_gid);
    rights.owner = owner != nullptr ? owner->pw_name : std::to_string(status.st_uid);
    rights.group = group != nullptr ? group->gr_name : std::to_string(status.st_gid);
    return rights;
}

}  // namespace oisctl
