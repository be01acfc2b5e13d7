#include "appliance/settings/known_parameters.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

TEST(Parameters, NamesIgnoreCase) {
    ASSERT_NE(findParameter("decoder.sequencemode"), nullptr);
    EXPECT_EQ(findParameter("decoder.sequencemode")->name, "Decoder.SequenceMode");
}

TEST(Parameters, SourceNamesMayHaveBlanksAndDots) {
    ASSERT_NE(findParameter("Encoder.Front door.Address"), nullptr);
    ASSERT_NE(findParameter("Encoder.10.0.0.1.Address"), nullptr);
    EXPECT_EQ(findParameter("Encoder.Address"), nullptr);
    EXPECT_EQ(findParameter("Encoder..Address"), nullptr);
    EXPECT_EQ(findParameter("Encoder.Front door.Adress"), nullptr);
}

TEST(Parameters, RulesHaveTheirOwnKeys) {
    ASSERT_NE(findParameter("Rule.Front door.Condition"), nullptr);
    ASSERT_NE(findParameter("Rule.a.b.MinimumTime"), nullptr);
    EXPECT_EQ(findParameter("Rule.Topic"), nullptr);
    EXPECT_EQ(findParameter("Rule.Door.Address"), nullptr);
    EXPECT_EQ(parameterFile("Rule.Door.Info.Topic"), 0);
    EXPECT_EQ(nearestParameter("Rule.Door.Pathh"), "Rule.Door.Path");
}

TEST(Parameters, InfoParametersAreInTheirOwnFile) {
    EXPECT_EQ(parameterFile("Decoder.Info.CurrentSource"), 1);
    EXPECT_EQ(parameterFile("decoder.info.connected"), 1);
    EXPECT_EQ(parameterFile("Decoder.Connected"), 0);
    EXPECT_EQ(parameterFile("Decoder.Info."), 0);
    EXPECT_EQ(parameterFile("Sound.Info.Muted"), 1);
    EXPECT_EQ(parameterFile("Sound.Volume"), 0);
    EXPECT_EQ(parameterFile("Info"), 0);
    EXPECT_EQ(parameterFile(".Info.Muted"), 0);
    EXPECT_EQ(parameterFile("Encoder.Door.Info.Address"), 0) << "a source's name may have dots";
    EXPECT_EQ(parameterFile("Encoder.Yard.Address"), 0);
}

TEST(Parameters, NearestNameOfADecoderAndOfASource) {
    EXPECT_EQ(nearestParameter("Decoder.SequenzMode"), "Decoder.SequenceMode");
    EXPECT_EQ(nearestParameter("Encoder.Front door.Adress"), "Encoder.Front door.Address");
    EXPECT_EQ(nearestParameter("Encoder.Front door.Colour"), "");
    EXPECT_EQ(nearestParameter("Colour"), "");
}

TEST(Parameters, NewValueIsInForceAfterItsLastReading) {
    EXPECT_EQ(effectText(*findParameter("Alarm.Enabled")), "now");
    EXPECT_EQ(effectText(*findParameter("Decoder.VideoMode")), "with the next player");
    EXPECT_EQ(effectText(*findParameter("Decoder.AutoDetectTimeout")), "at the next connect");
    EXPECT_EQ(effectText(*findParameter("Encoder.Yard.Password")), "at the next detection of the encoder");
    EXPECT_EQ(effectText(*findParameter("Decoder.AutoConnect")), "when the supervisor starts next");
    EXPECT_EQ(readingsText(*findParameter("Decoder.AutoDetectTimeout")), "connect, detection");
}

TEST(Parameters, WordsOfYesNoAndOfChoices) {
    EXPECT_THAT(valueWords(*findParameter("Alarm.Enabled")), testing::ElementsAre("yes", "no"));
    EXPECT_THAT(valueWords(*findParameter("Decoder.VideoMode")), testing::ElementsAre("pal", "ntsc"));
    EXPECT_TRUE(valueWords(*findParameter("Encoder.Yard.Name")).empty());
    EXPECT_THAT(valueWords(*findParameter("Screen.Size")), testing::ElementsAre("auto"));
    EXPECT_EQ(takenText(*findParameter("Screen.Size")),
              "auto or a size, even numbers from 160x120 to 3840x2160");
    EXPECT_EQ(takenText(*findParameter("Screen.ShowName")), "no, always or a number from 1 to 3600");
}

// The cells of the row of docs/parameters.md whose first cell has the name in backticks; empty when there is none.
std::vector<std::string> rowOf(const std::string& page, const std::string& name) {
    std::istringstream lines(page);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("| ") ||
            line.substr(0, line.find(" | ")).find('`' + name + '`') == std::string::npos) {
            continue;
        }
        std::vector<std::string> cells;
        std::istringstream row(line.substr(2));
        for (std::string cell; std::getline(row, cell, '|');) {
            cell.erase(0, cell.find_first_not_of(' '));
            cell.erase(cell.find_last_not_of(' ') + 1);
            cells.push_back(cell);
        }
        return cells;
    }
    return {};
}

// The page has a row for every parameter; its last cell says when the parameter is read.
TEST(Parameters, PageSaysWhenEachIsRead) {
    std::ifstream file(HOUSE_ROOT "/docs/parameters.md");
    std::stringstream text;
    text << file.rdbuf();
    ASSERT_FALSE(text.str().empty()) << "docs/parameters.md is missing";
    for (const auto table : {decoderParameters(), sourceParameters(), ruleParameters()}) {
        for (const KnownParameter& parameter : table) {
            const std::vector<std::string> row = rowOf(text.str(), std::string(parameter.name));
            ASSERT_FALSE(row.empty()) << parameter.name;
            EXPECT_EQ(row.back(), readingsText(parameter)) << parameter.name;
        }
    }
    for (const KnownParameter& parameter : infoParameters()) {
        EXPECT_FALSE(rowOf(text.str(), std::string(parameter.name)).empty()) << parameter.name;
    }
}

} // namespace
