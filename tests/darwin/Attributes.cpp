#include "Emulation.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include <dirent.h>
#include <sys/attr.h>
#include <sys/vnode.h>
#include <sys/xattr.h>

namespace {

/// Two options are the kernel's own, and a descriptor leaves no link to follow.
bool areRefused(int options, int more = 0) {
    if ((options & (XATTR_NOSECURITY | XATTR_NODEFAULT | more)) == 0) return false;
    errno = EINVAL;
    return true;
}

/// The path of an open file, even if it was opened for its path only.
struct PathOf {
    char text[40];
    explicit PathOf(int file) { std::snprintf(text, sizeof text, "/proc/self/fd/%d", file); }
};

/// Appends fields as the system packs them.
struct Packer {
    char* position;
    template <class Field>
    void put(const Field& field) {
        std::memcpy(position, &field, sizeof field);
        position += sizeof field;
    }
};

/// Length, attributes, an error if there is one, where the name is, the type if it is known, name.
char* pack(char* start, const dirent64& entry, bool hasError) {
    const auto length = static_cast<std::uint32_t>(std::strlen(entry.d_name) + 1);
    const bool hasType = entry.d_type != DT_UNKNOWN && !hasError;
    attribute_set_t returned{};
    returned.commonattr = ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_NAME |
                          (hasError ? ATTR_CMN_ERROR : 0) | (hasType ? ATTR_CMN_OBJTYPE : 0);
    Packer packer{start + sizeof(std::uint32_t)};
    packer.put(returned);
    if (hasError) packer.put(std::uint32_t{EACCES});
    packer.put(attrreference_t{hasType ? 12 : 8, length});
    if (hasType) packer.put(fsobj_type_t{entry.d_type == DT_DIR ? VDIR : VREG});
    std::memcpy(packer.position, entry.d_name, length);
    const auto whole = static_cast<std::uint32_t>(packer.position + length - start + 7) / 8 * 8;
    std::memcpy(start, &whole, sizeof whole);
    return start + whole;
}

} // namespace

ssize_t getxattr(const char* path, const char* name, void* value, size_t size, uint32_t,
                 int options) {
    if (areRefused(options)) return -1;
    const bool isLink = (options & XATTR_NOFOLLOW) != 0;
    if (!value) size = 0; // whatever it is
    return isLink ? lgetxattr(path, name, value, size) : getxattr(path, name, value, size);
}

ssize_t fgetxattr(int file, const char* name, void* value, size_t size, uint32_t position,
                  int options) {
    if (areRefused(options, XATTR_NOFOLLOW)) return -1;
    return getxattr(PathOf(file).text, name, value, size, position, options);
}

int setxattr(const char* path, const char* name, const void* value, size_t size, uint32_t,
             int options) {
    if (areRefused(options)) return -1;
    const int flags = (options & (XATTR_CREATE | XATTR_REPLACE)) >> 1; // Linux's are half of these
    return (options & XATTR_NOFOLLOW) != 0 ? lsetxattr(path, name, value, size, flags)
                                           : setxattr(path, name, value, size, flags);
}

int removexattr(const char* path, const char* name, int options) {
    if (areRefused(options)) return -1;
    return (options & XATTR_NOFOLLOW) != 0 ? lremovexattr(path, name) : removexattr(path, name);
}

int fremovexattr(int file, const char* name, int options) {
    if (areRefused(options, XATTR_NOFOLLOW)) return -1;
    return removexattr(PathOf(file).text, name, options);
}

// An entry whose attributes cannot be read comes with an error in place of its type: here every
// seventh.
int getattrlistbulk(int directory, void* wanted, void* buffer, size_t size, uint64_t) {
    const auto& list = *static_cast<const attrlist*>(wanted);
    if (list.bitmapcount != ATTR_BIT_MAP_COUNT ||
        (list.commonattr & ATTR_CMN_RETURNED_ATTRS) == 0) {
        errno = EINVAL;
        return -1;
    }
    static std::atomic<unsigned> packed;
    char* position = static_cast<char*>(buffer);
    int count = 0;
    while (count == 0) {
        alignas(dirent64) char entries[4096];
        const ssize_t got = getdents64(directory, entries, std::min(sizeof entries, size / 4));
        if (got <= 0) return static_cast<int>(got);
        for (ssize_t at = 0; at < got;) {
            const auto& entry = *reinterpret_cast<const dirent64*>(entries + at);
            at += entry.d_reclen;
            if (!std::strcmp(entry.d_name, ".") || !std::strcmp(entry.d_name, "..")) continue;
            position = pack(position, entry, packed++ % 7 == 3);
            ++count;
        }
    }
    return count;
}
