#pragma once
// What a procedure of the controller family did, as lines that can be typed by hand.

#include <algorithm>
#include <cstdio>
#include <deque>
#include <iomanip>
#include <map>
#include <sstream>

#include "driver/driver_fixture.h"

namespace driver_test {

using Lines = std::vector<std::string>;

// An access of three words: the register's address, its width, and the value word.
//   "write 0002:1 10"   "read 0001:1 0"   "firmware 1 0 100"   "firmware 1 0 0 -> 4"   "bypass off"
// All numbers but the width and the answer's length are hexadecimal. Any byte that is not as it has to be for
// such a record makes the line the whole record in hex.
inline std::string recordLine(const std::vector<uint8_t>& record) {
    uint32_t words[3] = {};
    std::memcpy(words, &record.at(4), sizeof words);
    const auto [a, b, c] = words;
    const unsigned id = record[0];
    const unsigned answer = record[2];
    const bool plain = record.size() == 64 && record[1] == 12 && record[3] == 0 &&
                       std::all_of(record.begin() + 16, record.end(), [](uint8_t byte) { return byte == 0; });
    char line[64] = {};
    if (plain && id == 0 && answer == b) {
        std::snprintf(line, sizeof line, "read %04x:%u %x", a, b, c);
    } else if (plain && id == 1 && answer == 0) {
        std::snprintf(line, sizeof line, "write %04x:%u %x", a, b, c);
    } else if (plain && id == 14 && answer == 0) {
        std::snprintf(line, sizeof line, "firmware %x %x %x", a, b, c);
    } else if (plain && id == 14) {
        std::snprintf(line, sizeof line, "firmware %x %x %x -> %u", a, b, c, answer);
    } else if (plain && id == 17 && answer == 0 && a == 0 && b == 0 && c == 0) {
        std::snprintf(line, sizeof line, "bypass off");
    } else {
        std::ostringstream hex;
        hex << std::hex << std::setfill('0');
        for (const int byte : record) hex << std::setw(2) << byte << ' ';
        return hex.str();
    }
    return line;
}

class KorvaTest : public DriverTest {
  protected:
    // Opens the driver on a hub module, through the family's parser; the chip is up and off.
    void openHub(const phone::ModuleDescription& module = phone::moduleByName("korvas4sw-hub")) {
        open(module);
        driver.mUseCustomCmd = 0;
        scriptReads();
    }
    void scriptReads() {
        mAnswers.clear();
        decide = [this](phone::FaultPoint point, std::string_view, std::span<const uint8_t> input) {
            std::optional<phone::FaultEffect> effect;
            if (point != phone::FaultPoint::kHubCommand || input[0] != 0) return effect;
            auto& values = mAnswers[input[4] + input[5] * 256U];
            if (!values.empty()) {
                effect = {.kind = phone::FaultEffect::Kind::kGarbage, .bytes = values.front()};
                values.pop_front();
            }
            return effect;
        };
    }
    // The next reads of that register give these bytes in turn, later ones what the chip says.
    void answers(uint32_t reg, std::deque<std::vector<uint8_t>> values) { mAnswers[reg] = std::move(values); }
    void forgetAnswers() { mAnswers.clear(); }
    phone::KorvaChip& chip() { return phone.hub().chip(); }

    // Records, sleeps ("sleep 2000", in us) and messages in order. Messages of the Android log have "log " in
    // front, and its errors "error "; those of the logging macro begin with their function.
    Lines course() {
        Lines lines;
        const std::vector<Sent> records = sent();
        size_t next = 0;
        for (const phone::Event& event : phone.trace().events()) {
            if (event.kind == phone::EventKind::kHub) lines.push_back(recordLine(records.at(next++).bytes));
            if (event.kind == phone::EventKind::kSleep)
                lines.push_back("sleep " + phone::toText(event.fields.at(0)));
            if (event.kind != phone::EventKind::kMessage) continue;
            const auto level = std::get<std::string>(phone::findField(event, "level")->value);
            const std::string head = event.name == "android" ? (level == "error" ? "error " : "log ") : "";
            lines.push_back(head + event.text);
        }
        return lines;
    }

  private:
    std::map<uint32_t, std::deque<std::vector<uint8_t>>> mAnswers;
};

inline Lines operator+(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// An idle request and so many polls beyond the first, without what is said in the end.
inline Lines idleAfter(size_t polls) {
    Lines lines = {"write 0000:1 0", "sleep 2000", "read 0001:1 0"};
    while (polls-- > 0) lines = lines + Lines{"sleep 10000", "read 0001:1 0"};
    return lines;
}
inline const Lines kIdleAtOnce = idleAfter(0) + Lines{"log state (1)\n"};
inline const Lines kIdleNever = idleAfter(20) + Lines{"log retry timep_err, state (2)\n", "log state (2)\n"};

}  // namespace driver_test
