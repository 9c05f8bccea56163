// oisctl report, as far as it goes without a browser; tests/report/check.py has the rest.

#include "oisctl_fixture.h"

namespace {

class Report : public Oisctl {
  protected:
    void SetUp() override {
        Oisctl::SetUp();
        run("record --seconds 0.4 --trace=run.jsonl");
        fs::create_directories(mFolder / "charts");
        write("charts/dygraph.min.css", "");
        write("charts/dygraph.min.js", "\"</script>\"");
    }
    const std::string mRecording = "ois_dump_tele_dw9786_status.txt";
};

size_t count(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
    return found;
}

TEST_F(Report, NothingThatItShowsEndsAScript) {
    write("hostile.jsonl",
          replaced(readFile(mFolder / "run.jsonl"), "\"module\":\"[^\"]*\"", R"("module":"</script><b>")"));
    const Outcome result = run("report hostile.jsonl --charts charts");
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string page = readFile(mFolder / "hostile.html");
    EXPECT_EQ(count(page, "</script"), 3U);
    EXPECT_EQ(count(page, "<b>"), 0U);
    EXPECT_EQ(count(page, R"(\u003cb>)"), 1U);
}

TEST_F(Report, SaysWhatIsMissing) {
    const std::string later = readFile(mFolder / mRecording);
    write("later.txt", replaced(later, "\n15  0\\.", "\n15  7."));
    struct Case {
        const char* arguments;
        bool charts, aligned;
        const char* remark;
    };
    const Case cases[] = {
        {"--charts charts", true, true, ""},
        {"--charts nowhere", false, true,
         "nowhere has no dygraph.min.js and .css; the package libjs-dygraphs"},
        {"later.txt --charts charts", true, false, "the trace has no answer that became a row of it"},
    };
    for (const auto& [arguments, charts, aligned, remark] : cases) {
        SCOPED_TRACE(arguments);
        const std::string recording = aligned ? mRecording + ' ' : "";
        const Outcome result = run("report run.jsonl " + recording + arguments + " --json");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(lines(result.err), *remark == 0 ? 0U : 1U) << result.err;
        EXPECT_NE(result.err.find(remark), std::string::npos) << result.err;
        const json report = parsed(result.out);
        EXPECT_EQ(report["charts"], charts);
        EXPECT_EQ(report["aligned"], aligned);
    }
}

TEST_F(Report, LosesNothingThatItIsMadeOf) {
    const std::string trace = readFile(mFolder / "run.jsonl");
    for (const std::string output : {"run.jsonl", "./run.jsonl", "./ois_dump_tele_dw9786_status.txt"}) {
        const Outcome result = run("report run.jsonl " + mRecording + " -o " + output);
        EXPECT_EQ(result.status, 2) << output;
        EXPECT_EQ(lines(result.err), 1U) << result.err;
    }
    EXPECT_EQ(readFile(mFolder / "run.jsonl"), trace);
    EXPECT_EQ(run("report run.jsonl -o nowhere/page.html").status, 1);
    fs::create_symlink("page.html", mFolder / "link.html");
    run("report run.jsonl -o link.html");
    EXPECT_TRUE(fs::is_symlink(mFolder / "link.html"));
    EXPECT_TRUE(fs::is_regular_file(mFolder / "page.html"));
    run("report run.jsonl -o pipe >/dev/null & cat pipe >copy", "mkfifo pipe;");
    EXPECT_TRUE(fs::is_fifo(mFolder / "pipe"));
    EXPECT_GT(fs::file_size(mFolder / "copy"), 10'000U);
}

}  // namespace
