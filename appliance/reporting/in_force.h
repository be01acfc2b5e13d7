// Which part of the configuration the decoder uses now, and which it has not read yet.
#pragma once

#include <libcommon/params.h>

#include <string>
#include <vector>

// How a source of the configuration differs from the source of that number at the last connect. Only what is read at
// a connect counts.
struct SourceDifference {
    bool isNew = false;
    std::vector<std::string> changed; // keys

    bool inForce() const { return !isNew && changed.empty(); }
};

struct InForce {
    bool known = false;       // false: the decoder is not connected, or its library does not publish it
    bool unchanged = true;    // the configuration file has not been written since the connect
    std::string sequenceMode; // "auto" or "manual"
    std::vector<SourceParams> sources;

    // How the configured source with this index differs. Without `known` nothing differs.
    SourceDifference difference(std::size_t index, const SourceParams& configured) const;
};

// Reads it. A decoder that is not connected reads everything at its next connect: nothing is in force then.
InForce readInForce();

// "new", "changed: Name, DisplayTime"; "" for a source that is in force as configured.
std::string differenceText(const SourceDifference& difference);
