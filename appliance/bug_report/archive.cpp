#include "appliance/bug_report/archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace bug_report {
namespace {

struct Free {
    void operator()(archive* it) const { archive_write_free(it); }
    void operator()(archive_entry* it) const { archive_entry_free(it); }
};
using Writer = std::unique_ptr<archive, Free>;
using Entry = std::unique_ptr<archive_entry, Free>;

// Throws the archive's own reason unless it went well.
void require(archive* writer, int result) {
    if (result != ARCHIVE_OK)
        throw std::runtime_error(archive_error_string(writer) == nullptr ? "the archive can't be written"
                                                                         : archive_error_string(writer));
}

void writePart(archive* writer, const std::string& folder, const Part& part) {
    const Entry entry(archive_entry_new());
    archive_entry_set_pathname(entry.get(), (folder + '/' + part.name).c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(part.text.size()));
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0600);
    archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
    require(writer, archive_write_header(writer, entry.get()));
    if (archive_write_data(writer, part.text.data(), part.text.size()) !=
        static_cast<la_ssize_t>(part.text.size()))
        require(writer, ARCHIVE_FATAL);
}

void writeParts(int fd, const std::string& folder, const std::vector<Part>& parts) {
    const Writer writer(archive_write_new());
    require(writer.get(), archive_write_add_filter_gzip(writer.get()));
    require(writer.get(), archive_write_set_format_pax_restricted(writer.get()));
    require(writer.get(), archive_write_set_bytes_in_last_block(writer.get(), 1));
    require(writer.get(), archive_write_open_fd(writer.get(), fd));
    for (const Part& part : parts)
        writePart(writer.get(), folder, part);
    require(writer.get(), archive_write_close(writer.get()));
}

std::size_t writeFile(const std::string& file, const std::string& folder, const std::vector<Part>& parts) {
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        throw std::runtime_error(file + " can't be made: " + std::strerror(errno));
    try {
        writeParts(fd, folder, parts);
        struct stat info {};
        if (fsync(fd) != 0 || fstat(fd, &info) != 0 || close(fd) != 0)
            throw std::runtime_error(file + ": " + std::strerror(errno));
        return static_cast<std::size_t>(info.st_size);
    } catch (const std::exception&) {
        unlink(file.c_str());
        throw;
    }
}

} // namespace

std::size_t writeArchive(const std::string& file, const std::string& folder, const std::vector<Part>& parts) {
    if (file != "-")
        return writeFile(file, folder, parts);
    writeParts(STDOUT_FILENO, folder, parts);
    return 0;
}

} // namespace bug_report
