#include "appliance/settings/source_sections.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

constexpr const char* file = "# The decoder.\n[Decoder]\nSequenceMode = auto\n\n# ---- Sources\n\n"
                             "# At the gate.\n[Encoder.Gate]\nAddress = a\n\n[Encoder.Yard]\nAddress = b\n\n"
                             "[Alarm]\nEnabled = yes\n\n[Encoder.Door]\nAddress = c";

TEST(SourceSections, NamesAreInFileOrder) {
    EXPECT_THAT(sourceSectionNames(file), ElementsAre("Gate", "Yard", "Door"));
    EXPECT_THAT(sourceSectionNames("[Encoder.A]\n[encoder.a]\n[Encoder.]\n[Encoder.B.C]\n"),
                ElementsAre("A", "B.C"));
}

TEST(SourceSections, ARemovedOneTakesItsCommentAlong) {
    const std::string text = withoutSource(file, "gate");
    EXPECT_EQ(text.find("At the gate"), std::string::npos);
    EXPECT_EQ(text.find("[Encoder.Gate]"), std::string::npos);
    EXPECT_NE(text.find("# ---- Sources\n\n[Encoder.Yard]\n"), std::string::npos);
    EXPECT_EQ(withoutSource(file, "None"), file);
}

TEST(SourceSections, AllRepetitionsAreRemoved) {
    EXPECT_EQ(withoutSource("[Encoder.A]\nAddress = 1\n[X]\n[Encoder.a]\nPTZ = 2\n", "A"), "[X]\n");
}

TEST(SourceSections, RenamingChangesOneLine) {
    EXPECT_EQ(withSourceRenamed("[Encoder.A]\r\nAddress = 1\r\n", "a", "Back yard"),
              "[Encoder.Back yard]\r\nAddress = 1\r\n");
    EXPECT_THAT(sourceSectionNames(withSourceRenamed(file, "Yard", "Court")),
                ElementsAre("Gate", "Court", "Door"));
}

TEST(SourceSections, OrderingKeepsWhatIsBetween) {
    const std::string text = withSourcesOrdered(file, {"Door", "Gate", "Yard"});
    EXPECT_THAT(sourceSectionNames(text), ElementsAre("Door", "Gate", "Yard"));
    EXPECT_NE(text.find("Address = c\n# At the gate.\n[Encoder.Gate]\n"), std::string::npos) << text;
    EXPECT_LT(text.find("[Encoder.Gate]"), text.find("[Alarm]"));
    EXPECT_EQ(withSourcesOrdered(file, {"Gate", "Yard", "Door"}), file);
}

TEST(SourceSections, ANewOneComesLast) {
    EXPECT_EQ(withSource("", "A", {"URL = u"}), "[Encoder.A]\nURL = u\n");
    EXPECT_EQ(withSource("[X]\na = b", "A", {}), "[X]\na = b\n\n[Encoder.A]\n");
}

TEST(SourceSections, NamesThatDoNotReadBackAreRefused) {
    for (const char* name : {"Yard", "Front door", "B.C", "\xC3\xBC"})
        EXPECT_EQ(whyNotSourceName(name), "") << name;
    for (const char* name : {"", " a", "a ", "a]b", "a\nb", "\xff"})
        EXPECT_NE(whyNotSourceName(name), "") << name;
}

} // namespace
