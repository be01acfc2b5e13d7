// The source after or before the one that shows, for an operator's arrow keys.
#pragma once

#include <string>
#include <vector>

struct ListedSource {
    std::string name;
    bool inMode = false; // enabled in the configured mode, and it has an address
};

// All sources of the configuration, in index order.
std::vector<ListedSource> listSources();

// "Decoder.Info.CurrentSource"; -1: none shows.
int currentSource();

// The index of the source that is `direction` (1: after, -1: before) of `current` among the sources of the mode. Goes
// on at the other end. -1 when no source is in the mode. Without a current source (-1): the first or the last one.
int stepFrom(int current, int direction, const std::vector<ListedSource>& sources);

// Shows the source after (1) or before (-1) the current one. Returns the sentence to print; throws Refused.
std::string selectNeighbour(int direction);

// Shows the source with this index. Returns the sentence to print; throws Refused when there is no such source.
std::string selectByNumber(int index);
