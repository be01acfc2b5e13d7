#include <libcommon/params.h>

#include "libcommon/src/parameter_files.h"
#include "libcommon/src/parameter_lock.h"
#include "libcommon/src/parameter_snapshot.h"
#include "libcommon/src/parameter_write.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

std::string_view viewOf(const char* text) {
    return text == nullptr ? std::string_view{} : std::string_view{text};
}

int loggedFailure(const char* what, int fileId, int error) {
    logmsg(3, "%s of parameter file %d failed. (errno=%d %s)", what, fileId, error, std::strerror(error));
    return -1;
}

} // namespace

Param::Param(int fileId, std::string name, std::shared_ptr<const ParameterSnapshot> snapshot)
    : fileId_(fileId), name_(std::move(name)), snapshot_(std::move(snapshot)) {}

int Param::toInt() const {
    const std::string text = toString();
    const int saved = errno;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    errno = saved;
    return static_cast<int>(
        std::clamp<long>(number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

std::string Param::toString() const {
    if (snapshot_ != nullptr)
        return std::string(snapshot_->value(name_));
    return std::string(local::currentParameters(fileId_)->value(name_));
}

bool Param::operator==(const char* text) const {
    if (snapshot_ != nullptr)
        return snapshot_->value(name_) == viewOf(text);
    return local::currentParameters(fileId_)->value(name_) == viewOf(text);
}

bool Param::operator!=(const char* text) const {
    return !(*this == text);
}

Param& Param::operator=(const char* text) {
    local::writeParameter(fileId_, name_, viewOf(text));
    return *this;
}

Param& Param::operator=(int value) {
    return *this = std::to_string(value).c_str();
}

ParamWrapper::ParamWrapper(int fileId, bool fresh)
    : fileId_(fileId), snapshot_(fresh ? nullptr : local::currentParameters(fileId)) {
    if (!local::isParameterFile(fileId))
        logmsg(3, "There is no parameter file %d.", fileId);
}

Param ParamWrapper::operator[](const char* name) const {
    return {fileId_, std::string(viewOf(name)), snapshot_};
}

std::vector<SourceParams> getSubGroups(int fileId, const char* group) {
    if (!local::isParameterFile(fileId))
        logmsg(3, "There is no parameter file %d.", fileId);
    return local::subGroups(*local::currentParameters(fileId), viewOf(group));
}

int userOpenAndLockParamFile(int fileId, int exclusive) {
    if (!local::isParameterFile(fileId))
        return loggedFailure("Locking", fileId, EINVAL);
    if (local::takeParameterLock(fileId, exclusive != 0) == 0)
        return 0;
    const int error = errno;
    logmsg(3, "Locking of parameter file %d failed: %s. (errno=%d %s)", fileId,
           local::parameterLockFailure(fileId, error).c_str(), error, std::strerror(error));
    return -1;
}

int userCloseAndUnlockParamFile(int fileId, int exclusive) {
    if (!local::isParameterFile(fileId))
        return loggedFailure("Unlocking", fileId, EINVAL);
    return local::releaseParameterLock(fileId, exclusive != 0) == 0
               ? 0
               : loggedFailure("Unlocking", fileId, errno);
}
