#pragma once

#include <Platform/system/ExtendedAttributes.h>
#include <Platform/system/detail/TreeWalk.h>

#include <cstddef>

namespace Platform::detail {

/// The system's own calls: -1 and `errno` on failure. Links are followed unless the options say
/// otherwise. A size of 0 asks for the attribute's size.
std::ptrdiff_t getAttribute(const char* path, const char* name, void* value, std::size_t size,
                            ExtendedAttributes::Options options);
int setAttribute(const char* path, const char* name, const void* value, std::size_t size,
                 ExtendedAttributes::Options options);
int removeAttribute(const char* path, const char* name, ExtendedAttributes::Options options);

/// The same for one attribute of entries of a tree, in the way that is fastest here and does not
/// mind how long their paths are.
class TreeAttribute {
public:
    explicit TreeAttribute(const char* name);

    /// Links are followed.
    bool isAt(TreeWalk& walk) const;
    int removeAt(TreeWalk& walk, ExtendedAttributes::Options options) const;

private:
    const char* name_;
    [[maybe_unused]] bool hasRelativeCalls_;
};

} // namespace Platform::detail
