// The status store: values about each source, for all processes of the decoder.
//
// Values are texts of one line, one file each (/run/decoder/source/INDEX/KEY below the appliance root), each replaced
// atomically: a reader sees the old value or the new one. Keys are 1 to 64 ASCII letters and digits, values
// at most 64 KiB. Bad indices and keys, and failed writes, are logged and change nothing. Writers take turns with a
// lock; a write that does not get it within a second (five seconds in programs other than the supervisor) is lost, with
// a log line that names the process that holds it. Reading never waits. Any thread.
#pragma once

#include <cstddef>
#include <string>

// Sets a value of the source with this index (0 or more). The empty text clears it. Values are stored printable: a
// control character becomes a blank and a byte that is no UTF-8 becomes '?'. Only "DetectionTrace" keeps its line breaks.
void status(int index, const std::string& key, const char* value);
void status(int index, const std::string& key, int value);

// A value; "" when it was never set.
std::string status(int index, const std::string& key);

void copyStatus(int fromIndex, int toIndex, const std::string& key);

namespace libcommon {

// Where the values of one source are: a folder, and the lock that all writers share.
struct StatusPlace {
    std::string folder;
    std::string lock;
};

// Makes both where they are missing, so that a process can give up the right to make them. Failures are left to the first
// write. Any thread.
StatusPlace makeStatusPlace(int index);

} // namespace libcommon

// The three tables of names; a type, connect mode or audio format is an index into its table.
extern const char* const videoSourceTypeString[9]; // auto, mjpeg, mpeg2-unicast, ...
extern const char* const connectModeString[5];     // auto, http, http-auth, https, unknown
extern const char* const audioSourceTypeString[6]; // none, mpeg, g711, g726, aac, unknown

// The index of `text` in a table of `size` texts, ignoring case; 0 for "", -1 and a log line for an unknown text.
int getNumberByString(const char* text, const char* const* table, std::size_t size);

template<std::size_t Size>
int getNumberByString(const char* text, const char* const (&table)[Size]) {
    return getNumberByString(text, table, Size);
}
