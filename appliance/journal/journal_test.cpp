#include "appliance/journal/journal.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

TEST(JournalLine, IsReadAsTheLibraryWritesIt) {
    const JournalLine line =
        readJournalLine("2026-11-21T07:58:01.123456Z skelmor[4711] 3 It failed. (errno=2 x)");
    EXPECT_EQ(line.time, "2026-11-21T07:58:01.123456Z");
    EXPECT_EQ(line.program, "skelmor");
    EXPECT_EQ(line.level, 3);
    EXPECT_EQ(line.text, "It failed. (errno=2 x)");
    EXPECT_EQ(journalJson(line)["level"], "error");
}

TEST(JournalLine, AnyOtherLineIsAText) {
    for (const char* text : {"", "Segmentation fault", "a[1] 6 b", "2026-11-21T07:58:01.123456Z", "]["}) {
        const JournalLine line = readJournalLine(text);
        EXPECT_EQ(line.text, text);
        EXPECT_EQ(line.program, "");
        EXPECT_TRUE(journalJson(line)["time"].is_null());
    }
}

TEST(JournalLine, HasNoColoursAndNoPasswords) {
    const JournalLine line = readJournalLine("2026-11-21T07:58:01.123456Z skelmor[4711] 7 "
                                             "\033[1;34mState transition: A(1) -> AUTO_PAUSE(2)\033[0m");
    EXPECT_EQ(line.text, "State transition: A(1) -> AUTO_PAUSE(2)");
    EXPECT_EQ(enteredState(line), "AUTO_PAUSE");
    EXPECT_EQ(enteredState(readJournalLine("x -> y(")), std::nullopt);
    EXPECT_EQ(readJournalLine("GET rtsp://a:s3cret@b/").text, "GET rtsp://a:***@b/");
}

TEST(JournalLine, BytesThatAreNoTextDoNoHarm) {
    const JournalLine line = readJournalLine("\xff\xfe\033 and \033[ without an end\x01");
    EXPECT_NO_THROW(journalJson(line).dump());
}

class LogFileTest : public testing::Test {
protected:
    LogFileTest() {
        char folder[] = "/tmp/panel-log-XXXXXX";
        folder_ = mkdtemp(folder);
        path_ = folder_ / "decoder.log";
    }
    ~LogFileTest() override { std::filesystem::remove_all(folder_); }

    void append(const std::string& text) const { std::ofstream(path_, std::ios::app) << text; }

    static std::vector<std::string> follow(Journal& journal) {
        std::vector<std::string> texts;
        journal.follow([&](const JournalLine& line) { texts.push_back(line.text); });
        return texts;
    }

    std::filesystem::path folder_;
    std::filesystem::path path_;
};

using Texts = std::vector<std::string>;

TEST_F(LogFileTest, GivesTheLastLines) {
    append("one\ntwo\nthree\nunfini");
    const auto journal = openLogFile(path_);
    const std::vector<JournalLine> lines = journal->last(2);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "two");
    EXPECT_EQ(lines[1].text, "three");
    EXPECT_EQ(journal->last(100).size(), 3U);
    EXPECT_TRUE(journal->last(0).empty());
}

TEST_F(LogFileTest, FollowsWhatIsNew) {
    append("old\n");
    const auto journal = openLogFile(path_);
    EXPECT_EQ(follow(*journal), Texts{});
    append("one\ntw");
    EXPECT_EQ(follow(*journal), Texts{"one"});
    append("o\n");
    EXPECT_EQ(follow(*journal), Texts{"two"});
}

TEST_F(LogFileTest, FollowsAFileThatIsReplaced) {
    append("old\n");
    const auto journal = openLogFile(path_);
    append("last of the first\n");
    std::filesystem::rename(path_, folder_ / "decoder.log.1");
    append("first of the second\n");
    EXPECT_EQ(follow(*journal), (Texts{"last of the first", "first of the second"}));
    std::ofstream(path_) << "x\n"; // emptied
    EXPECT_EQ(follow(*journal), Texts{"x"});
}

TEST_F(LogFileTest, AFileNeedNotExist) {
    const auto journal = openLogFile(path_);
    EXPECT_TRUE(journal->last(5).empty());
    EXPECT_EQ(follow(*journal), Texts{});
    append("one\n");
    EXPECT_EQ(follow(*journal), Texts{"one"});
}

TEST_F(LogFileTest, IsBounded) {
    const auto journal = openLogFile(path_);
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += "line " + std::to_string(i) + "\n";
    append(text + std::string(100'000, 'x') + "\nend\n");
    EXPECT_EQ(follow(*journal).size(), Journal::mostLines);
    EXPECT_EQ(journal->last(1'000'000).size(), 3002U);
    for (int i = 0; i < 30; ++i)
        append(std::string(100'000, 'y') + "\n");
    EXPECT_EQ(journal->last(1'000'000).size(), 20U) << "whole lines of the last 2 MiB";
}

TEST(SystemJournal, OpensOrSaysWhyNot) {
    const auto journal = openSystemJournal({"skelmor"});
    if (journal == nullptr)
        GTEST_SKIP() << "this machine has no journal";
    EXPECT_LE(journal->last(3).size(), 3U);
    journal->follow([](const JournalLine&) {});
}

} // namespace
