// The configuration of one source, and its key.
//
// A source's record is the map of its parameters (`SourceParams`), read from the parameter file again at each use. The
// source index, its 0-based position in the list, identifies the source everywhere. Main thread.
#pragma once

#include <libcommon/params.h>

#include <string>

// All configured sources, in order. Cheap however many there are: a record is built when it is looked at.
SubGroups readSources();

// The record of one source; an empty record for an index that names none.
SourceParams readSource(int index);

// "Address#VideoSourceNumber#VideoSourceType" from the raw values. Sources with equal keys, byte for byte, are the same
// input of the same encoder. Inserts missing keys with empty values, like every look-up in a record.
std::string sourceKey(SourceParams& params);
