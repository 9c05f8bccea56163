// What the answers hold.

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <tuple>

#include "compliance/examination.h"
#include "compliance/page_end.h"

namespace oisctl {

using ois::Request;

namespace {

constexpr useconds_t kFlashSettleUs = 2000;  // the driver waits so long for a buffer that is filled
constexpr useconds_t kSampleUs = 4000;  // between two samples of a recording, unless it is told otherwise
constexpr int kSamples = 20;
constexpr uint8_t kDumpLevel = 15;  // all that the controller has

Finding sampleTimes(Examination& examination) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    std::pair<uint64_t, uint64_t> before{};
    for (int i = 0; i < kSamples; ++i) {
        ois::OisStatusRecord status{};
        status.chose = kDumpLevel;
        if (const int32_t result = device.ask(Request::kReadStatus, status); result < 0)
            return failed("READ_STATUS " + resultText(result), "0");
        const std::pair now(status.timestampSeconds, status.timestampFraction);
        if (now.second >= kFractionEnd)
            return failed(fmt::format("a fraction of {}", now.second), "microseconds below 1000000");
        if (i != 0 && now <= before)
            return failed(fmt::format("{}.{:06} s after {}.{:06} s", now.first, now.second, before.first,
                                      before.second),
                          fmt::format("a later time every {} us", kSampleUs));
        before = now;
        usleep(kSampleUs);
    }
    return passed(fmt::format("{} samples", kSamples));
}

// What READ_FLASH did with the address it was given.
struct FlashAnswer {
    int32_t result = 0;
    bool inPlace = false;
    bool followed = false;
    ois::OisFlashRecord flash{};
};

FlashAnswer readFlash(const SubDevice& device) {
    std::vector<std::byte> room(sizeof(ois::OisFlashRecord), std::byte{kGuardByte});
    PageEnd page(PageEnd::Behind::kNothing);  // what reaches behind the room is refused
    std::byte* const buffer = page.put(room, 0);
    std::vector<std::byte> record = room;
    std::ranges::copy(copyOf(buffer), record.begin());
    const std::vector<std::byte> sent = record;
    FlashAnswer answer;
    answer.result = device.ask(ois::code(Request::kReadFlash), record);
    usleep(kFlashSettleUs);
    answer.inPlace = record != sent;
    answer.followed = !std::equal(room.begin(), room.end(), buffer);
    std::memcpy(&answer.flash, answer.inPlace ? record.data() : buffer, sizeof answer.flash);
    return answer;
}

Finding flashAnswer(Examination& examination) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    const char* const expected = "the record in place, or in the buffer that the address leads to";
    const FlashAnswer first = readFlash(device);
    if (first.result < 0) return failed(resultText(first.result), "0");
    if (!first.inPlace && !first.followed) return failed("neither of both has changed", expected);
    if (first.inPlace && first.followed) return failed("both have changed", expected);
    const ois::OisFlashRecord& flash = first.flash;
    const bool fits = flash.length >= 1 && flash.length <= ois::kFlashDataSize;
    if (!fits || uint64_t{flash.base} + flash.length > uint64_t{UINT32_MAX} + 1)
        return failed(fmt::format("length {}, base 0x{:08x}", flash.length, flash.base),
                      fmt::format("1 to {} bytes within 32 bits of address", ois::kFlashDataSize));
    const FlashAnswer second = readFlash(device);
    const auto data = [](const FlashAnswer& answer) {
        return std::span(answer.flash.data).first(std::min<size_t>(answer.flash.length, ois::kFlashDataSize));
    };
    if (second.result < 0 || second.inPlace != first.inPlace || second.flash.base != flash.base ||
        !std::ranges::equal(data(first), data(second)))
        return failed("another answer the second time", "the same");
    return passed(fmt::format("{}: {} bytes from 0x{:08x}",
                              first.inPlace ? "answers in place" : "follows the pointer", flash.length,
                              flash.base));
}

Finding badFlashAddress(Examination& examination) {
    SubDevice device(examination.subject());
    examination.setUp(device);
    if (!readFlash(device).followed) return notAsked("READ_FLASH does not follow the pointer");
    PageEnd page(PageEnd::Behind::kNothing);
    const std::vector<std::byte> room(sizeof(ois::OisFlashRecord));
    const std::byte* const unmapped = page.put(room, room.size());
    std::vector<std::byte> record = room;
    std::ranges::copy(copyOf(unmapped), record.begin());
    const int32_t result = device.ask(ois::code(Request::kReadFlash), record);
    return result == -EFAULT ? passed() : failed(resultText(result), "EFAULT");
}

// The driver goes on with what comes back.
Finding customisation(Examination& examination) {
    SubDevice device(examination.subject());
    ois::OisCustInfo block = examination.subject().module->custInfo;
    if (const int32_t result = device.ask(Request::kSetCustomisation, block); result < 0)
        return failed(resultText(result), "0");
    if (block.gainFormat < ois::kGainFloat || block.gainFormat > ois::kGainQ31)
        return failed(fmt::format("gainFormat {} came back", block.gainFormat), "1 to 3");
    if (block.coordinateNum > ois::kCoordinateCapacity)
        return failed(fmt::format("coordinateNum {} came back", block.coordinateNum),
                      fmt::format("at most {}", ois::kCoordinateCapacity));
    if (!std::isfinite(block.angleAmplitude) || !std::isfinite(block.max_error_threshold))
        return failed("angleAmplitude or max_error_threshold came back as no number", "numbers");
    const bool changed = copyOf(block) != copyOf(examination.subject().module->custInfo);
    return passed(changed ? "came back changed" : "came back as it was sent");
}

}  // namespace

std::vector<Check> answerChecks() {
    return {
        {.group = "answers",
         .name = "customisation",
         .run = customisation,
         .needs = {Request::kSetCustomisation},
         .needsModule = true},
        {.group = "answers", .name = "times of samples", .run = sampleTimes, .needs = {Request::kReadStatus}},
        {.group = "answers", .name = "flash", .run = flashAnswer, .needs = {Request::kReadFlash}},
        {.group = "answers",
         .name = "flash at a bad address",
         .run = badFlashAddress,
         .needs = {Request::kReadFlash}},
    };
}

}  // namespace oisctl
