#include <Platform/system/detail/TreeAttribute.h>

#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/syslimits.h>
#include <sys/xattr.h>

namespace Platform::detail {
namespace {

using Options = ExtendedAttributes::Options;

bool fits(const std::string& path) {
    return path.size() < PATH_MAX;
}

/// For entries whose path is too long. Throws when descriptors run out: it would be missed.
FileDescriptor open(const TreeWalk& walk, bool followLink) {
    FileDescriptor file(trySystemCall(SystemCall::open, [&] {
        return ::openat(walk.directory(), walk.name(),
                        O_RDONLY | O_NONBLOCK | O_CLOEXEC | (followLink ? 0 : O_SYMLINK));
    }));
    if (!file && (errno == EMFILE || errno == ENFILE)) throwErrno();
    return file;
}

} // namespace

std::ptrdiff_t getAttribute(const char* path, const char* name, void* value, std::size_t size,
                            Options options) {
    return ::getxattr(path, name, value, size, 0, options.rawValue());
}

int setAttribute(const char* path, const char* name, const void* value, std::size_t size,
                 Options options) {
    return ::setxattr(path, name, value, size, 0, options.rawValue());
}

int removeAttribute(const char* path, const char* name, Options options) {
    return ::removexattr(path, name, options.rawValue());
}

// This system has no calls that take a directory, and the working directory is not ours to change.
TreeAttribute::TreeAttribute(const char* name) : name_(name), hasRelativeCalls_(false) {}

bool TreeAttribute::isAt(TreeWalk& walk) const {
    return trySystemCall(SystemCall::getAttribute, [&]() -> std::ptrdiff_t {
               if (const std::string& path = walk.path(); fits(path))
                   return getAttribute(path.c_str(), name_, nullptr, 0, Options{});
               const FileDescriptor file = open(walk, true);
               return file ? ::fgetxattr(file.get(), name_, nullptr, 0, 0, 0) : -1;
           }) >= 0;
}

int TreeAttribute::removeAt(TreeWalk& walk, Options options) const {
    if (const std::string& path = walk.path(); fits(path))
        return removeAttribute(path.c_str(), name_, options);
    const auto bits = options.rawValue();
    const FileDescriptor file = open(walk, (bits & XATTR_NOFOLLOW) == 0);
    // A descriptor leaves no link to follow, and the call refuses the option.
    return file ? ::fremovexattr(file.get(), name_, bits & ~XATTR_NOFOLLOW) : -1;
}

} // namespace Platform::detail
