// The logging macros and their two sinks.

#include "log.h"

#include "driver/driver_fixture.h"

namespace {

using NSCam::Utils::ULog::ULogger;
using Texts = std::vector<std::string>;

// --- Every use of the macros

int gLine = 0;
void speakAll() {
    gLine = __LINE__ + 1;
    OIS_LOG(kError, "broken %d %s\n", -5, "%n%s");
    OIS_LOG(kInfo, "known %s", "thing");
    OIS_LOG(kDebug, "detail %x", 255U);
}
void speakCounting(int& evaluated) {
    OIS_LOG(kError, "%d", ++evaluated);
    OIS_LOG(kInfo, "%d", ++evaluated);
    OIS_LOG(kDebug, "%d", ++evaluated);
}
void speak(const char* text) {
    OIS_LOG(kError, "%s", text);
}
#define TEN(X) X X X X X X X X X X
void speakLongFormat() {
    OIS_LOG(kError, TEN(TEN("0123456789")) TEN("abcdefghij"));
}
#undef TEN
void speakUnformattable() {
    OIS_LOG(kInfo, "%ls", L"\u20ac");  // no such character in the C locale
}

// What the platform's global words may be.
struct Gates {
    uint32_t mode = 3;
    int32_t detailsLevel = 5;
    uint32_t mask = 0x801000;
    // Flag bytes of the debug log's levels.
    uint8_t error = 0x80;
    uint8_t info = 0x80;
    uint8_t debug = 0x80;
    bool hasUnifiedLogger = true;
};

class Log : public ::testing::Test, public ULogger {
  protected:
    Log() {
        g_logInfoLv[0].prefix = "<zero>";
        g_logInfoLv[1].prefix = "<one>";
        g_logInfoLv[3].prefix = "<three>";
        set({});
    }
    void onAttach() override { ADD_FAILURE(); }
    void onDetach() override { ADD_FAILURE(); }
    void onFlush() override { ADD_FAILURE(); }
    void onLog(uint32_t moduleId, const char* tag, int32_t level, const char* text, size_t length) override {
        EXPECT_EQ(moduleId, 8523781U);
        EXPECT_STREQ(tag, "OisDrv");
        EXPECT_EQ(text[length], '\0');
        unified.push_back(std::to_string(level) + ' ' + std::string(text, length));
    }

    void set(const Gates& gates) {
        ULogger::sMode = gates.mode;
        ULogger::sDetailsLevel = gates.detailsLevel;
        ULogger::sNormalDetailsMask = gates.mask;
        ULogger::sULogger = gates.hasUnifiedLogger ? this : nullptr;
        g_logInfoLv[0].flags = gates.debug;
        g_logInfoLv[1].flags = gates.error;
        g_logInfoLv[3].flags = gates.info;
    }
    // The debug log's lines so far.
    Texts debugLog() {
        Texts texts;
        for (const phone::Event& event : phone.trace().events(phone::EventKind::kMessage)) {
            EXPECT_EQ(event.name, "debug-log");
            EXPECT_EQ(std::get<std::string>(phone::findField(event, "tag")->value), "OisDrv");
            texts.push_back(event.text);
        }
        return texts;
    }
    // Which of error, info and debug arrived.
    static std::string letters(const Texts& texts, const std::array<char, 3>& ofLevel, size_t at) {
        std::string arrived;
        for (const std::string& text : texts)
            arrived += text[at] == ofLevel[0] ? 'E' : text[at] == ofLevel[1] ? 'I' : 'D';
        return arrived;
    }

    phone::Phone phone;
    Texts unified;  // level and text
};

TEST_F(Log, BothSinksGetTheirForms) {
    speakAll();
    const std::string at = "[OisDrv] log_test.cpp:";
    const auto line = [](int offset) { return std::to_string(gLine + offset); };
    EXPECT_EQ(debugLog(),
              (Texts{"<one>" + at + line(0) + " speakAll() [speakAll] broken -5 %n%s\n (speakAll){#" +
                         line(0) + ":" + __FILE__ + "}",
                     "<three>" + at + line(1) + " speakAll() [speakAll] known thing",
                     "<zero>" + at + line(2) + " speakAll() [speakAll] detail ff"}));
    EXPECT_EQ(unified,
              (Texts{"1 [speakAll] broken -5 %n%s\n", "3 [speakAll] known thing", "5 [speakAll] detail ff"}));
}

TEST_F(Log, GatesDecidePerSinkAndLevel) {
    const struct {
        Gates gates;
        std::string debugLog;  // which of error, info and debug arrive
        std::string unified;
    } cases[] = {
        {{}, "EID", "EID"},
        {{.mode = 0}, "", ""},
        {{.mode = 1}, "EID", ""},
        {{.mode = 2}, "", "EID"},
        {{.mode = 8}, "", "EID"},
        {{.mode = 0xfffffff4}, "", ""},
        {{.detailsLevel = 4}, "EI", "EI"},
        {{.detailsLevel = 3}, "EI", "EI"},
        {{.detailsLevel = 2}, "E", "E"},
        {{.detailsLevel = -1}, "E", "E"},
        {{.mask = 0}, "EI", "EI"},
        {{.mask = 0x21000}, "EI", "EI"},
        {{.mask = 0x800000}, "EI", "EI"},
        {{.mask = 0x820000}, "EID", "EID"},
        {{.error = 0, .info = 0, .debug = 0}, "", "EID"},
        {{.error = 0x7f, .info = 0xff, .debug = 0}, "I", "EID"},
        {{.hasUnifiedLogger = false}, "EID", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        set(c.gates);
        phone.trace().clear();
        unified.clear();
        speakAll();
        EXPECT_EQ(letters(debugLog(), {'o', 't', 'z'}, 1), c.debugLog);
        EXPECT_EQ(letters(unified, {'1', '3', '5'}, 0), c.unified);
    }
}

TEST_F(Log, ArgumentsOfAnUnwantedMessageAreNotEvaluated) {
    int evaluated = 0;
    set({.detailsLevel = 0, .error = 0, .hasUnifiedLogger = false});
    speakCounting(evaluated);
    set({.mode = 1, .error = 0, .info = 0, .debug = 0});
    speakCounting(evaluated);
    EXPECT_EQ(evaluated, 0);
    set({});  // once each, although two sinks take the message
    speakCounting(evaluated);
    EXPECT_EQ(evaluated, 3);
}

TEST_F(Log, LongTextsAreCutToTheirBuffers) {
    const std::string longText(3000, 'x');
    speak(longText.c_str());
    EXPECT_EQ(unified.at(0), ("1 [speak] " + longText).substr(0, 2 + 1023));
    // Only the line's format has a buffer in the debug log: 1023 bytes, in which "%s" becomes the function's
    // name.
    EXPECT_NE(debugLog().at(0).find(longText + " (speak){#"), std::string::npos);
    speakLongFormat();
    EXPECT_EQ(debugLog().at(1).size(), 1023 - std::strlen("%s") + std::strlen("speakLongFormat"));
    EXPECT_EQ(unified.at(1).size(), 2U + 1023);
}

TEST_F(Log, AMessageThatCannotBeFormattedIsDropped) {
    speakUnformattable();
    EXPECT_TRUE(unified.empty());
    EXPECT_TRUE(debugLog().empty());
}

}  // namespace
