#include "launcher/model/diagram/state_diagram.h"

#include "launcher/model/transitions.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

namespace diagram {

namespace {

struct GroupText {
    StateGroup group;
    const char* file;
    const char* title;
    const char* sentence;
};

constexpr std::array groupTexts{
    GroupText{GROUP_NONE, "", "Before the start", ""},
    GroupText{GROUP_CONNECT, "connect", "Connecting and selecting",
              "From the start or a selection to a source whose encoder is detected."},
    GroupText{GROUP_DISCONNECTED, "disconnected", "Stopping and being disconnected",
              "How playback is stopped, and the states without playback: disconnected, locked, cache flush."},
    GroupText{GROUP_REQUEST_FAILED, "request-failed", "A source that could not be detected",
              "The current player is stopped, a message is shown, and an error sleep begins."},
    GroupText{GROUP_LAUNCH, "launch", "Launching and switching",
              "A player is started alone, or behind the current player, which it then replaces without a "
              "dark screen."},
    GroupText{
        GROUP_CRASH, "crash", "Players that exit unexpectedly",
        "The other player continues. Without a player the screen is blanked and an error sleep begins."},
    GroupText{
        GROUP_AUTO, "auto", "The automatic sequence",
        "Each source is shown for its display time; the user can pause the sequence or select a source."},
    GroupText{GROUP_PAUSE, "pause", "The automatic sequence, paused",
              "The source stays, also after a crash, until the user continues."},
    GroupText{GROUP_MANUAL, "manual", "Manual selection",
              "One source is shown until the user or an alarm selects another."},
};
static_assert(groupTexts.size() == stateGroupCount);

const GroupText& textOf(StateGroup group) {
    return groupTexts[static_cast<std::size_t>(group)];
}

StateGroup groupOf(int state) {
    return stateTable()[static_cast<std::size_t>(state)].group;
}

std::string groupNode(StateGroup group) {
    return group == GROUP_NONE ? "start([\"start\"])"
                               : "group_" + std::to_string(group) + "([\"" + textOf(group).title + "\"])";
}

// Arrows with the same ends become one line with all conditions.
std::string mergedConditions(State from, State to) {
    std::string all;
    for (const Transition& arrow : transitions())
        if (arrow.from == from && arrow.to == to)
            all += (all.empty() ? "" : "<br>") + std::string(arrow.condition);
    return all;
}

std::string outgoing(StateGroup group) {
    std::ostringstream lines;
    std::set<std::pair<State, State>> drawn;
    for (const Transition& arrow : transitions()) {
        if (groupOf(arrow.from) != group || arrow.to == arrow.from ||
            !drawn.insert({arrow.from, arrow.to}).second)
            continue;
        const bool leaves = groupOf(arrow.to) != group;
        lines << "    " << stateName(arrow.from) << " -->|\"" << mergedConditions(arrow.from, arrow.to)
              << "\"| " << stateName(arrow.to);
        if (leaves)
            lines << "([\"" << stateName(arrow.to) << "<br><i>" << textOf(groupOf(arrow.to)).title
                  << "</i>\"])";
        lines << "\n";
    }
    return lines.str();
}

std::string incoming(StateGroup group) {
    std::ostringstream lines;
    std::set<std::pair<StateGroup, State>> drawn;
    for (const Transition& arrow : transitions())
        if (groupOf(arrow.to) == group && groupOf(arrow.from) != group &&
            drawn.insert({groupOf(arrow.from), arrow.to}).second)
            lines << "    " << groupNode(groupOf(arrow.from)) << " -.-> " << stateName(arrow.to) << "\n";
    return lines.str();
}

std::string statesOf(StateGroup group, const Meanings& meanings) {
    std::ostringstream lines;
    lines << "| # | state | |\n|---|---|---|\n";
    for (const StateRow& row : stateTable())
        if (row.group == group)
            lines << "| " << row.number << " | " << row.name << " | "
                  << meanings[static_cast<std::size_t>(row.number)] << " |\n";
    return lines.str();
}

std::string arrowsOf(StateGroup group) {
    std::ostringstream lines;
    lines << "| state | when | next |\n|---|---|---|\n";
    for (const Transition& arrow : transitions())
        if (groupOf(arrow.from) == group)
            lines << "| " << stateName(arrow.from) << " | " << arrow.condition << " | "
                  << (arrow.to == arrow.from ? "stays" : stateName(arrow.to)) << " |\n";
    return lines.str();
}

std::string groupsBlock() {
    std::ostringstream lines;
    lines << "```mermaid\nflowchart TD\n";
    std::set<std::pair<StateGroup, StateGroup>> drawn;
    for (const Transition& arrow : transitions()) {
        const std::pair ends{groupOf(arrow.from), groupOf(arrow.to)};
        if (ends.first != ends.second && drawn.insert(ends).second)
            lines << "    " << groupNode(ends.first) << " --> " << groupNode(ends.second) << "\n";
    }
    lines << "```\n";
    for (const GroupText& group : groupTexts)
        if (group.group != GROUP_NONE)
            lines << "- [" << group.title << "](state-machine/" << groupFile(group.group)
                  << "): " << group.sentence << "\n";
    return lines.str();
}

// What a state does with an event: leaves, stays, or leaves the event queued.
std::string cell(State state, Trigger trigger) {
    bool moves = false;
    bool stays = false;
    for (const Transition& arrow : transitions())
        if (arrow.from == state && arrow.trigger == trigger)
            (arrow.to == state ? stays : moves) = true;
    if (moves)
        return stays ? "go / stay" : "**go**";
    return stays ? "stay" : "";
}

std::string eventsBlock() {
    std::ostringstream lines;
    lines << "| state |";
    for (int trigger = BY_ITSELF + 1; trigger < triggerCount; ++trigger)
        lines << " " << triggerName(static_cast<Trigger>(trigger)) << " |";
    lines << "\n|---|";
    for (int trigger = BY_ITSELF + 1; trigger < triggerCount; ++trigger)
        lines << "---|";
    lines << "\n";
    for (const StateRow& row : stateTable()) {
        std::string cells;
        for (int trigger = BY_ITSELF + 1; trigger < triggerCount; ++trigger)
            cells += " " + cell(static_cast<State>(row.number), static_cast<Trigger>(trigger)) + " |";
        if (cells.find_first_not_of(" |") != std::string::npos)
            lines << "| " << row.name << " |" << cells << "\n";
    }
    return lines.str();
}

std::string statesBlock(const Meanings& meanings) {
    std::ostringstream lines;
    lines << "| # | state | | group |\n|---|---|---|---|\n";
    for (const StateRow& row : stateTable())
        if (row.group != GROUP_NONE)
            lines << "| " << row.number << " | " << row.name << " | "
                  << meanings[static_cast<std::size_t>(row.number)] << " | [" << textOf(row.group).title
                  << "](state-machine/" << groupFile(row.group) << ") |\n";
    return lines.str();
}

std::string block(const std::string& name, const Meanings& meanings) {
    if (name == "groups")
        return groupsBlock();
    if (name == "events")
        return eventsBlock();
    if (name == "states")
        return statesBlock(meanings);
    return "There is no block named " + name + ".\n";
}

} // namespace

Meanings readMeanings(const std::string& statesHeader) {
    Meanings meanings;
    std::istringstream lines(statesHeader);
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find(" = ");
        const auto comment = line.find("// ");
        if (equals == std::string::npos || comment == std::string::npos || comment < equals)
            continue;
        const int number = std::stoi(line.substr(equals + 3));
        if (number >= 0 && number < stateCount)
            meanings[static_cast<std::size_t>(number)] = line.substr(comment + 3);
    }
    return meanings;
}

std::string groupFile(StateGroup group) {
    return std::string(textOf(group).file) + ".md";
}

std::string groupPage(StateGroup group, const Meanings& meanings) {
    std::ostringstream page;
    page << "<!-- Generated by state_diagram from launcher/; changes here are overwritten. -->\n"
         << "# " << textOf(group).title << "\n\n"
         << textOf(group).sentence << " [All groups](../state-machine.md)\n\n"
         << "```mermaid\nflowchart TD\n"
         << incoming(group) << outgoing(group) << "```\n\n"
         << "Dotted arrows come from other groups; rounded states belong to other groups. Events that leave "
            "a state "
            "as it is are in the table only.\n\n"
         << statesOf(group, meanings) << "\n"
         << arrowsOf(group);
    return page.str();
}

std::string overviewPage(const std::string& current, const Meanings& meanings) {
    const std::string opening = "<!-- generated: ";
    std::istringstream lines(current);
    std::ostringstream page;
    bool inBlock = false;
    for (std::string line; std::getline(lines, line);) {
        if (line == "<!-- end -->")
            inBlock = false;
        if (!inBlock)
            page << line << "\n";
        if (line.starts_with(opening)) {
            page << block(line.substr(opening.size(), line.rfind(" -->") - opening.size()), meanings);
            inBlock = true;
        }
    }
    return page.str();
}

std::map<std::string, std::string> allPages(const std::string& overview, const Meanings& meanings) {
    std::map<std::string, std::string> pages{{"state-machine.md", overviewPage(overview, meanings)}};
    for (const GroupText& group : groupTexts)
        if (group.group != GROUP_NONE)
            pages["state-machine/" + groupFile(group.group)] = groupPage(group.group, meanings);
    return pages;
}

} // namespace diagram
