#include <Platform/base/TemporaryDirectory.h>

#include <Platform/base/Errno.h>
#include <Platform/base/ProcessInfo.h>
#include <Platform/base/UUID.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/base/detail/UserDirectory.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace Platform {
namespace {

using detail::SystemCall;
using detail::trySystemCall;

constexpr std::string_view pipeDirectoryName = "app.morvel.pkg.platform.fifo";

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string join(std::string directory, std::string_view name) {
    if (!directory.ends_with('/')) {
        directory += '/';
    }
    return directory.append(name);
}

std::string octal(mode_t mode) {
    std::string digits;
    for (int shift = 9; shift >= 0; shift -= 3) {
        digits += static_cast<char>('0' + ((mode >> shift) & 07));
    }
    return digits;
}

int makeDirectory(const std::string& path, mode_t mode) {
    return trySystemCall(SystemCall::mkdir, [&] { return ::mkdir(path.c_str(), mode); });
}

int examine(const std::string& path, struct stat& status) {
    return trySystemCall(SystemCall::lstat, [&] { return ::lstat(path.c_str(), &status); });
}

/// Makes a directory and those missing above it; one that somebody else made meanwhile is fine.
void makeDirectories(const std::string& path, mode_t mode) {
    if (makeDirectory(path, mode) == 0 || errno == EEXIST) {
        return;
    }
    const int error = errno;
    const std::string parent = withoutTrailingSlashes(path.substr(0, path.rfind('/') + 1));
    if (error != ENOENT || parent.empty() || parent.size() >= path.size()) {
        throw Errno(error, path);
    }
    makeDirectories(parent, 0777);
    if (makeDirectory(path, mode) != 0 && errno != EEXIST) {
        throw Errno(errno, path);
    }
}

void refuseUnlessPrivate(const std::string& path) {
    struct stat status;
    if (examine(path, status) != 0) {
        throw Errno(errno, path);
    }
    if (!S_ISDIR(status.st_mode)) {
        throw Errno(ENOTDIR, path);
    }
    if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw Errno(EACCES, path + " (owner " + std::to_string(status.st_uid) + ", mode " +
                                octal(status.st_mode) + ")");
    }
}

} // namespace

std::string temporaryDirectory() {
    std::string path = ProcessInfo::environmentValue("TMPDIR").value_or("");
    if (!path.starts_with('/')) {
        path = detail::systemTemporaryDirectory();
    }
    if (!path.starts_with('/')) {
        path = "/tmp";
    }
    return withoutTrailingSlashes(std::move(path));
}

std::string makePrivateDirectory(const std::string& path) {
    // A slash at the end would make a symbolic link look like the directory behind it.
    std::string directory = withoutTrailingSlashes(path);
    makeDirectories(directory, S_IRWXU);
    refuseUnlessPrivate(directory);
    return directory;
}

std::string makeTemporaryPipePath() {
    const std::string directory = join(temporaryDirectory(), pipeDirectoryName);
    std::string path = join(directory, makeUUID());
    struct stat status;
    if (examine(path, status) != 0) {
        makePrivateDirectory(directory);
    }
    return path;
}

} // namespace Platform
