// Parameter files: the configuration (file 0) and the decoder's own status (file 1).
//
// File 0 is /etc/decoder/decoder.conf, file 1 /run/decoder/info.conf, both below the appliance root. They are INI
// files: `[Decoder]` `SequenceMode = auto` is the parameter "Decoder.SequenceMode". The part before the last dot is the
// section, so "Decoder.Info.Connected" is `Connected` in `[Decoder.Info]`. Names ignore case, values keep theirs. `#`
// and `;` begin comment lines; after `=` they are part of the value, which is the whole rest of the line without
// surrounding blanks. When a section or key comes twice, the later value counts.
//
// Reading: a file is parsed once and again only when it changed; a change by any process is seen at the next access,
// never half of it. A line that can't be read is logged with file, line and reason and skipped, once per version of
// the file; lines below a section line that can't be read belong nowhere and are skipped too. A file that can't be
// read at all (a folder, no permission, more than 4 MiB) is logged and reads as an empty one. Writing: comments, order
// and everything that the write does not change are kept; the file is replaced atomically under a lock that other
// processes respect, file 0 durably (it survives a power cut). A file without any write permission bit refuses writes
// with a log line, because an administrator has made it read-only. Mode, group and, where that is possible, owner of
// the file are kept; a link stays and the file behind it is replaced. A new file belongs to the group of its folder,
// and that group may write it when it may write the folder; so does the lock file. Other users can't read a new file
// 0: it may hold passwords.
//
// Every wait for the lock has a bound: one second in the supervisor (the owner of the event queue), five seconds in
// other programs. A write that does not get the lock is lost, with one log line that names the process that holds it.
// On the main thread SIGINT and SIGCHLD are let in meanwhile.
//
// Any thread; two threads don't share one ParamWrapper object.
#pragma once

#include <libcommon/istring.h>

#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// The configuration of one source, name to value, exactly as the file has it.
using SourceParams = std::map<istring, std::string>;

struct ParameterSnapshot; // one parsed file

// One parameter: a name in a file. Missing parameters read as "" and 0.
class Param {
public:
    Param(int fileId, std::string name, std::shared_ptr<const ParameterSnapshot> snapshot);
    Param(const Param&) = default;
    Param& operator=(const Param&) = delete; // would copy the name, not the value
    ~Param() = default;

    // The value as a decimal integer from its first character; 0 without digits. Saturates at int's limits.
    int toInt() const;
    std::string toString() const;

    // Exact, case-sensitive comparison with the value; missing is unequal to every non-empty text.
    bool operator==(const char* text) const;
    bool operator!=(const char* text) const;

    // Writes the value to the file. A control character in the text, a blank at its beginning or end, and
    // values that make a line longer than about 56 KiB are refused: they would not read back. A failed write is
    // logged with file, errno and reason, never with the value; the file is unchanged.
    Param& operator=(const char* text);
    Param& operator=(int value);

private:
    int fileId_;
    std::string name_;
    std::shared_ptr<const ParameterSnapshot> snapshot_; // null: read again at every access
};

// A handle on a parameter file.
class ParamWrapper {
public:
    // `fileId` 0 or 1. `fresh` true: values are read again at every access, so that a handle held for a thread's life
    // sees changes; false: values are those of the moment of construction. Never fails: a missing file reads as an
    // empty one.
    ParamWrapper(int fileId, bool fresh);
    Param operator[](const char* name) const;

private:
    int fileId_;
    std::shared_ptr<const ParameterSnapshot> snapshot_; // null: fresh
};

// Where the records of a group come from. The library has one; tests may have their own.
class SubGroupList {
public:
    SubGroupList() = default;
    SubGroupList(const SubGroupList&) = delete;
    SubGroupList& operator=(const SubGroupList&) = delete;
    virtual ~SubGroupList() = default;
    virtual std::size_t size() const = 0;
    virtual SourceParams record(std::size_t position) const = 0; // `position` is below size()
};

// The sections of a group, one record each, in file order. The list is that of the moment when it was asked for. It is
// cheap to make and to copy however long it is, because a record is built when it is looked at. All inline: a program
// needs nothing of the library but getSubGroups().
class SubGroups {
public:
    SubGroups() = default; // an empty list
    explicit SubGroups(std::shared_ptr<const SubGroupList> list) : list_(std::move(list)) {}

    std::size_t size() const { return list_ == nullptr ? 0 : list_->size(); }
    bool empty() const { return size() == 0; }

    // The record at this position, which is below size(); a new one at each call.
    SourceParams operator[](std::size_t position) const { return list_->record(position); }

    // All records at once.
    operator std::vector<SourceParams>() const { return {begin(), end()}; }

    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = SourceParams;
        using difference_type = std::ptrdiff_t;
        using pointer = const SourceParams*;
        using reference = SourceParams;

        Iterator(const SubGroups& groups, std::size_t position) : groups_(&groups), position_(position) {}
        SourceParams operator*() const { return (*groups_)[position_]; }
        Iterator& operator++() {
            ++position_;
            return *this;
        }
        void operator++(int) { ++position_; }
        bool operator==(const Iterator&) const = default;

    private:
        const SubGroups* groups_;
        std::size_t position_;
    };
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size()}; }

private:
    std::shared_ptr<const SubGroupList> list_; // null: empty
};

// One record for every section `[GROUP.NAME]` of the file, in file order; the section's NAME is the value of
// "Name" unless the section has that key itself. An index into this list is a source index.
SubGroups getSubGroups(int fileId, const char* group);

// Takes the file's lock, `exclusive` 1 for the exclusive one (0 shared); other processes' writes wait
// meanwhile, this process's own go through, whatever thread makes them. Reading never waits. Calls nest
// within a process; a forked child holds nothing. 0, or -1 with a log line, also when another process still holds the
// lock at the end of the bound above.
int userOpenAndLockParamFile(int fileId, int exclusive);
int userCloseAndUnlockParamFile(int fileId, int exclusive);

// Brings the status store in line with file 0: drops the status values of source indices that no longer
// exist, and of sources whose address, number or type changed since their values were first written. Drops
// nothing when file 0 is there but can't be read. Its first call in a process also removes what dead writers did not
// finish below /run/decoder.
void syncEncoderInfo();
