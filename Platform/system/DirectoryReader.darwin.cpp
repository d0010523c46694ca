#include <Platform/system/detail/DirectoryReader.h>

#include <Platform/base/detail/SystemCall.h>

#include <cstring>

#include <sys/attr.h>
#include <sys/vnode.h>
#include <unistd.h>

namespace Platform::detail {
namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 15;

/// Copies a field out of the buffer, which aligns to four bytes only, and moves past it.
template <class Field>
Field take(const char*& position) {
    Field field;
    std::memcpy(&field, position, sizeof field);
    position += sizeof field;
    return field;
}

} // namespace

DirectoryReader::DirectoryReader() : buffer_(new char[bufferSize]) {}

bool DirectoryReader::next(int directory, Entry& entry) {
    while (position_ != end_ || fill(directory)) {
        // The order of the fields is the system's; those not in the set are left out.
        const char* field = position_;
        position_ += take<std::uint32_t>(field);
        const auto returned = take<attribute_set_t>(field);
        if (returned.commonattr & ATTR_CMN_ERROR) take<std::uint32_t>(field);
        if (!(returned.commonattr & ATTR_CMN_NAME)) continue;
        const char* const reference = field;
        entry.name = reference + take<attrreference_t>(field).attr_dataoffset;
        entry.mayBeDirectory = !(returned.commonattr & ATTR_CMN_OBJTYPE) ||
                               take<fsobj_type_t>(field) == fsobj_type_t{VDIR};
        return true;
    }
    return false;
}

bool DirectoryReader::fill(int directory) {
    attrlist wanted = {};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    wanted.commonattr = ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_ERROR | ATTR_CMN_NAME | ATTR_CMN_OBJTYPE;
    int count = trySystemCall(SystemCall::listDirectory, [&] {
        return ::getattrlistbulk(directory, &wanted, buffer_.get(), bufferSize, 0);
    });
    position_ = end_ = buffer_.get();
    for (; count > 0; --count) {
        const char* entry = end_;
        end_ += take<std::uint32_t>(entry);
    }
    return position_ != end_;
}

// Offsets in a directory mean nothing to another descriptor of it.
std::int64_t DirectoryReader::bookmark(int, std::int64_t count) {
    return count;
}

void DirectoryReader::resume(int directory, std::int64_t bookmark) {
    for (Entry entry{}; bookmark > 0 && next(directory, entry);) --bookmark;
}

} // namespace Platform::detail
