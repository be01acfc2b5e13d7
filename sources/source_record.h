// The configuration of one source, and what tells two sources apart.
//
// A source's record is the map of its parameters (`SourceParams`), read afresh from the parameter file at
// each use; its 0-based position in the list is the source index, a source's identity everywhere. Main
// thread.
#pragma once

#include <libcommon/params.h>

#include <string>

// All configured sources, in order. Cheap however many there are: a record is built when it is looked at.
SubGroups readSources();

// The record of one source; an empty record for an index that names none.
SourceParams readSource(int index);

// "Address#VideoSourceNumber#VideoSourceType" from the raw values. Equal keys, byte for byte, are the same
// input of the same encoder. Inserts missing keys with empty values, as every look-up in a record does.
std::string sourceKey(SourceParams& params);
