#include "libcommon/src/parameter_snapshot.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using local::parse;

std::string valueIn(const std::string& text, const char* name) {
    ParameterSnapshot snapshot;
    parse(text, snapshot);
    return std::string(snapshot.value(name));
}

std::string complaints(const std::string& text) {
    ParameterSnapshot snapshot;
    std::string all;
    for (const local::Complaint& complaint : parse(text, snapshot))
        all += std::to_string(complaint.line) + ": " + complaint.reason + "\n";
    return all;
}

TEST(ParameterSnapshot, ReadsSectionsAndKeys) {
    EXPECT_EQ(valueIn("[Decoder]\nSequenceMode = auto\n", "Decoder.SequenceMode"), "auto");
    EXPECT_EQ(valueIn("[Decoder.Info]\nConnected=yes", "Decoder.Info.Connected"), "yes");
    EXPECT_EQ(valueIn("[ Network.eth0 ] ; wired\n\tIPAddress\t=\t10.0.0.7\t\n", "Network.eth0.IPAddress"),
              "10.0.0.7");
    EXPECT_EQ(valueIn("x = 1\n[A]\nx = 2\n", "x"), "1");
    EXPECT_EQ(valueIn("[A]\nx = 1\n", "A.y"), "");
    EXPECT_EQ(valueIn("[A]\nx = 1\n", "B.x"), "");
    EXPECT_EQ(valueIn("[A]\nx = 1\n", "x"), "");
    EXPECT_EQ(valueIn("[A]\nx = 1\n", ""), "");
    EXPECT_EQ(valueIn("", "A.x"), "");
}

TEST(ParameterSnapshot, NamesIgnoreCaseAndValuesKeepTheirs) {
    EXPECT_EQ(valueIn("[deCoder]\nsequencemode = AuTo\n", "DECODER.SequenceMode"), "AuTo");
}

TEST(ParameterSnapshot, AValueIsTheWholeRestOfItsLine) {
    EXPECT_EQ(valueIn("[A]\nPassword = a#b;c \"d\" = e\n", "A.Password"), "a#b;c \"d\" = e");
    EXPECT_EQ(valueIn("[A]\nx = # no comment\n", "A.x"), "# no comment");
}

TEST(ParameterSnapshot, TheLaterOfTwoValuesCounts) {
    EXPECT_EQ(valueIn("[A]\nx = 1\nX = 2\n", "A.x"), "2");
    EXPECT_EQ(valueIn("[A]\nx = 1\n[B]\n[a]\nx = 3\n", "A.x"), "3");
    EXPECT_EQ(valueIn("[A]\nx = 1\nx =\n", "A.x"), "");
}

TEST(ParameterSnapshot, CommentsBlankLinesByteOrderMarkAndCrLfAreNoTrouble) {
    const std::string text = "\xef\xbb\xbf# c\r\n\r\n[A]\r\n; c\r\n  # c\r\nx = 1\r\n";
    EXPECT_EQ(valueIn(text, "A.x"), "1");
    EXPECT_EQ(complaints(text), "");
}

TEST(ParameterSnapshot, ReportsWhyALineCantBeReadAndContinues) {
    const std::string text = "[A]\n"
                             "Password secret\n"
                             " = 1\n"
                             "a.b = 1\n"
                             "x = \x01\n"
                             "y = 2\n"
                             "[B] z\n"
                             "y = 3\n"
                             "[]\n"
                             "[C\n"
                             "[.D]\n"
                             "[E\x01]\n"
                             "[F]\n"
                             "y = 4\n";
    EXPECT_EQ(complaints(text), "2: no '='\n"
                                "3: no name before '='\n"
                                "4: a dot in the name: the part before it belongs into the section line\n"
                                "5: a control character\n"
                                "7: a section line with text after ']'\n"
                                "8: it is below a section line that can't be read\n"
                                "9: a section line without a full name\n"
                                "10: a section line without ']'\n"
                                "11: a section line without a full name\n"
                                "12: a section line with a control character\n");
    EXPECT_EQ(valueIn(text, "A.y"), "2");
    EXPECT_EQ(valueIn(text, "F.y"), "4");
}

TEST(ParameterSnapshot, HostileTextsAreReadAsFarAsTheyGo) {
    EXPECT_EQ(valueIn("[A]\nx = " + std::string(60000, 'v') + "\n", "A.x").size(), 60000U);
    EXPECT_EQ(complaints("[A]\nx = " + std::string(70000, 'v') + "\ny = 1\n"), "2: the line is too long\n");
    EXPECT_EQ(complaints("[" + std::string(70000, 'A') + "]\n"), "1: a section line that is too long\n");
    EXPECT_EQ(complaints(std::string("[A]\nx\0y = 1\n\0", 13)),
              "2: a control character\n3: a control character\n");
    EXPECT_EQ(complaints("[A]\rx = 1\r"), "1: a section line with a control character\n");
    EXPECT_EQ(valueIn("\n\n\n=\n[\n]\n\xff\xfe\n[A]\nx=1", "A.x"), "1");
}

TEST(ParameterSnapshot, AFileOfGarbageComplainsFiftyTimesAndCountsTheRest) {
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "garbage\n";
    ParameterSnapshot snapshot;
    const auto all = parse(text, snapshot);
    ASSERT_EQ(all.size(), 51U);
    EXPECT_EQ(all[49].line, 50U);
    EXPECT_EQ(all[50].line, 0U);
    EXPECT_EQ(all[50].reason, "950 more lines can't be read");
}

TEST(ParameterSnapshot, SubGroupsComeInFileOrderWithTheirNames) {
    const auto snapshot = std::make_shared<ParameterSnapshot>();
    parse("[Encoder.Gate]\nAddress = 10.0.0.1\naddress = 10.0.0.2\n[Decoder]\nx = 1\n[encoder.Yard]\nName = "
          "The yard\n"
          "[Encoder.10.0.0.9]\n[Encoders.No]\n[Encoder]\nx = 1\n[Encoder.GATE]\nPort = 8\n",
          *snapshot);
    const SubGroups groups(std::make_shared<const local::Sections>(snapshot, "Encoder"));
    ASSERT_EQ(groups.size(), 3U);
    EXPECT_EQ(groups[0], (SourceParams{{"Address", "10.0.0.2"}, {"Name", "Gate"}, {"Port", "8"}}));
    EXPECT_EQ(groups[1], (SourceParams{{"Name", "The yard"}}));
    EXPECT_EQ(groups[2], (SourceParams{{"Name", "10.0.0.9"}}));
    EXPECT_TRUE(local::Sections(snapshot, "Camera").size() == 0);
    EXPECT_TRUE(local::Sections(snapshot, "").size() == 0);
}

} // namespace
