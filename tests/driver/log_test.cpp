// The logging macro and its two sinks.

#include "log.h"

#include "driver/driver_fixture.h"

namespace {

using NSCam::Utils::ULog::ULogger;
using Texts = std::vector<std::string>;

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

class Log : public ::testing::Test {
  protected:
    struct Line {
        uint32_t moduleId;
        std::string tag;
        int32_t level;
        std::string text;
    };
    class Recorder final : public ULogger {
      public:
        void onAttach() override { ADD_FAILURE(); }
        void onDetach() override { ADD_FAILURE(); }
        void onFlush() override { ADD_FAILURE(); }
        void onLog(uint32_t moduleId, const char* tag, int32_t level, const char* text,
                   size_t length) override {
            EXPECT_EQ(text[length], '\0');
            lines.push_back({moduleId, tag, level, {text, length}});
        }
        std::vector<Line> lines;
    };

    Log() {
        g_logInfoLv[0].prefix = "<zero>";
        g_logInfoLv[1].prefix = "<one>";
        g_logInfoLv[3].prefix = "<three>";
        set({});
    }

    void set(const Gates& gates) {
        ULogger::sMode = gates.mode;
        ULogger::sDetailsLevel = gates.detailsLevel;
        ULogger::sNormalDetailsMask = gates.mask;
        ULogger::sULogger = gates.hasUnifiedLogger ? &unified : nullptr;
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
    void forget() {
        unified.lines.clear();
        phone.trace().clear();
    }

    phone::Phone phone;
    Recorder unified;
};

int gLine = 0;
void speakAll() {
    gLine = __LINE__ + 1;
    OIS_LOG(kError, "broken %d %s\n", -5, "%n%s");
    OIS_LOG(kInfo, "known %s", "thing");
    OIS_LOG(kDebug, "detail %x", 255U);
}

TEST_F(Log, BothSinksGetTheirForms) {
    speakAll();
    const std::string at = "[OisDrv] log_test.cpp:";
    const auto line = [](int offset) { return std::to_string(gLine + offset); };
    EXPECT_EQ(debugLog(),
              (Texts{"<one>" + at + line(0) + " speakAll() [speakAll] broken -5 %n%s\n (speakAll){#" +
                         line(0) + ":" + __FILE__ + "}",
                     "<three>" + at + line(1) + " speakAll() [speakAll] known thing",
                     "<zero>" + at + line(2) + " speakAll() [speakAll] detail ff"}));
    ASSERT_EQ(unified.lines.size(), 3U);
    const std::pair<int32_t, const char*> expected[] = {
        {1, "[speakAll] broken -5 %n%s\n"}, {3, "[speakAll] known thing"}, {5, "[speakAll] detail ff"}};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(unified.lines[i].moduleId, 8523781U);
        EXPECT_EQ(unified.lines[i].tag, "OisDrv");
        EXPECT_EQ(unified.lines[i].level, expected[i].first);
        EXPECT_EQ(unified.lines[i].text, expected[i].second);
    }
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
        {{.mode = 10}, "", "EID"},
        {{.mode = 0xfffffff4}, "", ""},
        {{.detailsLevel = 4}, "EI", "EI"},
        {{.detailsLevel = 2}, "E", "E"},
        {{.detailsLevel = -1}, "E", "E"},
        {{.mask = 0}, "EI", "EI"},
        {{.mask = 0x21000}, "EI", "EI"},
        {{.mask = 0x820000}, "EID", "EID"},
        {{.error = 0, .info = 0, .debug = 0}, "", "EID"},
        {{.error = 0x7f, .info = 0xff, .debug = 0}, "I", "EID"},
        {{.hasUnifiedLogger = false}, "EID", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        set(c.gates);
        forget();
        speakAll();
        std::string arrived;
        for (const std::string& text : debugLog())
            arrived += text[1] == 'o' ? 'E' : text[1] == 't' ? 'I' : 'D';
        EXPECT_EQ(arrived, c.debugLog);
        arrived.clear();
        for (const Line& line : unified.lines) arrived += line.level == 1 ? 'E' : line.level == 3 ? 'I' : 'D';
        EXPECT_EQ(arrived, c.unified);
    }
}

TEST_F(Log, ArgumentsOfAnUnwantedMessageAreNotEvaluated) {
    int evaluated = 0;
    const auto speak = [&] {
        OIS_LOG(kError, "%d", ++evaluated);
        OIS_LOG(kInfo, "%d", ++evaluated);
        OIS_LOG(kDebug, "%d", ++evaluated);
    };
    set({.detailsLevel = 0, .error = 0, .hasUnifiedLogger = false});
    speak();
    set({.mode = 1, .error = 0, .info = 0, .debug = 0});
    speak();
    EXPECT_EQ(evaluated, 0);
    set({});  // once each, although two sinks take the message
    speak();
    EXPECT_EQ(evaluated, 3);
}

TEST_F(Log, TheUnifiedLoggersTextIsCutTheDebugLogsIsNot) {
    const std::string longText(3000, 'x');
    OIS_LOG(kError, "%s", longText.c_str());
    ASSERT_EQ(unified.lines.size(), 1U);
    EXPECT_EQ(unified.lines[0].text, ("[TestBody] " + longText).substr(0, 1023));
    // Only the line's format has a buffer there.
    EXPECT_NE(debugLog().at(0).find(longText + " (TestBody){#"), std::string::npos);
}

#define TEN(X) X X X X X X X X X X
TEST_F(Log, ALongFormatIsCutForTheDebugLog) {
    OIS_LOG(kError, TEN(TEN("0123456789")) TEN("abcdefghij"));
    // 1023 bytes of format, in which "%s" became the function's name.
    const std::string line = debugLog().at(0);
    EXPECT_EQ(line.size(), 1023 - std::strlen("%s") + std::strlen("TestBody"));
    EXPECT_EQ(line.find("TestBody){#"), std::string::npos);
    EXPECT_EQ(unified.lines.at(0).text.size(), 1023U);
}
#undef TEN

TEST_F(Log, AMessageThatCannotBeFormattedIsDropped) {
    OIS_LOG(kInfo, "%ls", L"\u20ac");  // no such character in the C locale
    EXPECT_TRUE(unified.lines.empty());
    EXPECT_TRUE(debugLog().empty());
    speakAll();
    EXPECT_EQ(unified.lines.size(), 3U);
}

}  // namespace
