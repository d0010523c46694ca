#include <Platform/system/detail/TreeAttribute.h>

#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace Platform::detail {
namespace {

using Options = ExtendedAttributes::Options;

// Calls that take a directory came with Linux 6.13; the C library's headers may not have them yet.
constexpr long getxattratNumber = 464;
constexpr long removexattratNumber = 466;

struct XattrArguments {
    alignas(8) std::uint64_t value = 0;
    std::uint32_t size = 0;
    std::uint32_t flags = 0;
};

long getSizeAt(int directory, const char* path, const char* name) {
    XattrArguments arguments;
    return ::syscall(getxattratNumber, directory, path, 0, name, &arguments, sizeof arguments);
}

/// For systems without those calls: the entry's whole path or, should that be too long, a short one
/// that goes through the directory's descriptor.
std::string path(TreeWalk& walk) {
    const std::string& whole = walk.path();
    if (whole.size() < PATH_MAX) return whole;
    return "/proc/self/fd/" + std::to_string(walk.directory()) + '/' + walk.name();
}

} // namespace

std::ptrdiff_t getAttribute(const char* path, const char* name, void* value, std::size_t size,
                            Options options) {
    return options.contains(Options::noFollow) ? ::lgetxattr(path, name, value, size)
                                               : ::getxattr(path, name, value, size);
}

int setAttribute(const char* path, const char* name, const void* value, std::size_t size,
                 Options options) {
    const int flags = (options.contains(Options::create) ? XATTR_CREATE : 0) |
                      (options.contains(Options::replace) ? XATTR_REPLACE : 0);
    return options.contains(Options::noFollow) ? ::lsetxattr(path, name, value, size, flags)
                                               : ::setxattr(path, name, value, size, flags);
}

int removeAttribute(const char* path, const char* name, Options options) {
    return options.contains(Options::noFollow) ? ::lremovexattr(path, name)
                                               : ::removexattr(path, name);
}

TreeAttribute::TreeAttribute(const char* name) : name_(name) {
    // A filter of system calls may refuse the new ones with any number; known ones say this.
    const auto result =
        trySystemCall(SystemCall::attributeAt, [&] { return getSizeAt(-1, "name", name); });
    hasRelativeCalls_ = result == -1 && errno == EBADF;
}

bool TreeAttribute::isAt(TreeWalk& walk) const {
    return trySystemCall(SystemCall::getAttribute, [&]() -> std::ptrdiff_t {
               return hasRelativeCalls_
                          ? getSizeAt(walk.directory(), walk.name(), name_)
                          : getAttribute(path(walk).c_str(), name_, nullptr, 0, Options{});
           }) >= 0;
}

int TreeAttribute::removeAt(TreeWalk& walk, Options options) const {
    if (!hasRelativeCalls_) return removeAttribute(path(walk).c_str(), name_, options);
    return static_cast<int>(::syscall(removexattratNumber, walk.directory(), walk.name(),
                                      options.contains(Options::noFollow) ? AT_SYMLINK_NOFOLLOW : 0,
                                      name_));
}

} // namespace Platform::detail
