#include "launcher/model/diagram/state_diagram.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

namespace {

const std::string root = HOUSE_SOURCE_DIR;

std::string read(const std::string& file) {
    std::ifstream in(root + "/" + file);
    EXPECT_TRUE(in) << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

diagram::Meanings meanings() {
    return diagram::readMeanings(read("launcher/states.h"));
}

} // namespace

TEST(StateDiagram, TheCommittedPagesAreWhatTheCodeMakes) {
    const auto pages = diagram::allPages(read("docs/state-machine.md"), meanings());
    EXPECT_EQ(pages.size(), 9U);
    for (const auto& [name, text] : pages)
        EXPECT_EQ(read("docs/" + name), text) << "out of date: run `state_diagram .` in the top folder";
}

TEST(StateDiagram, EveryStateHasAMeaning) {
    for (const StateRow& row : stateTable())
        EXPECT_NE(meanings()[static_cast<std::size_t>(row.number)], "") << row.name;
}

TEST(StateDiagram, TheOverviewHasEveryBlock) {
    const std::string overview = read("docs/state-machine.md");
    for (const char* name : {"groups", "events", "states"})
        EXPECT_THAT(overview, testing::HasSubstr("<!-- generated: " + std::string(name) + " -->\n"));
}

TEST(StateDiagram, TextAroundABlockIsKeptAndTheBlockReplaced) {
    const std::string page = diagram::overviewPage(
        "before\n<!-- generated: states -->\nobsolete\n<!-- end -->\nafter\n", meanings());
    EXPECT_THAT(page, testing::StartsWith("before\n<!-- generated: states -->\n| # | state | | group |\n"));
    EXPECT_THAT(page, testing::EndsWith("|\n<!-- end -->\nafter\n"));
    EXPECT_THAT(page, testing::Not(testing::HasSubstr("obsolete")));
    EXPECT_EQ(diagram::overviewPage(page, meanings()), page);
}

TEST(StateDiagram, AGroupsPageDrawsItsArrowsWithTheirConditions) {
    const std::string page = diagram::groupPage(GROUP_PAUSE, meanings());
    EXPECT_THAT(page, testing::HasSubstr(
                          "AUTO_PAUSE -->|\"current player exits\"| CURRENT_PLAYER_CRASHED_DURING_PAUSE\n"));
    EXPECT_THAT(page, testing::HasSubstr("| AUTO_PAUSE | another child exits | stays |\n"));
    EXPECT_THAT(page, testing::HasSubstr("| 43 | AUTO_PAUSE | the sequence is paused |\n"));
}
