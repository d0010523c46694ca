#pragma once

#include <Platform/base/Data.h>
#include <Platform/base/Export.h>
#include <Platform/system/ExtendedAttributeName.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace Platform {

namespace detail {
class TreeWalk;
}

/// The extended attributes of one file, by its path.
///
/// A plain value that keeps the path only: nothing is checked or opened before an operation, and
/// each looks the path up anew. Const operations are callable from any thread; nothing guards
/// against others changing the file meanwhile. They block as the file system does.
///
/// Failures are thrown as `Errno` with the number of the failing call. Those to expect: a missing
/// attribute (`ENODATA`, on macOS `ENOATTR`), a missing file (`ENOENT`), a file that may not be
/// read or changed (`EACCES`, `EPERM`), a file system without attributes (`ENOTSUP`).
class PLATFORM_EXPORT ExtendedAttributes {
public:
    /// A set of options, whose bits are macOS's own and handed to it unchanged. Linux knows the
    /// first three and ignores all others.
    class Options {
    public:
        /// None.
        constexpr Options() noexcept = default;
        explicit constexpr Options(std::int32_t rawValue) noexcept : rawValue_(rawValue) {}

        constexpr std::int32_t rawValue() const noexcept { return rawValue_; }
        constexpr bool contains(Options other) const noexcept {
            return (rawValue_ & other.rawValue_) == other.rawValue_;
        }

        friend constexpr Options operator|(Options left, Options right) noexcept {
            return Options(left.rawValue_ | right.rawValue_);
        }
        friend bool operator==(Options, Options) = default;

        /// Act on a symbolic link itself. macOS refuses it for open files, where the library leaves
        /// it out.
        static const Options noFollow;
        /// Setting fails (`EEXIST`) when the attribute is there.
        static const Options create;
        /// Setting fails when the attribute is missing.
        static const Options replace;
        /// Leave out the checks of security attributes. macOS refuses it from every process
        /// (`EINVAL`): it is for the kernel's own callers.
        static const Options noSecurity;
        /// Leave out the system's default handlers. macOS refuses it from every process, likewise.
        static const Options noDefault;
        /// Show what the file system compresses with.
        static const Options showCompression;

    private:
        std::int32_t rawValue_ = 0;
    };

    /// An entry that `removeAttributeRecursive` has dealt with. It holds only during the call that
    /// it is given to.
    class Visit {
    public:
        /// The root's path with the entry's relative path joined to it.
        std::filesystem::path path() const;
        /// Whether the attribute was removed.
        bool removed() const noexcept { return removed_; }
        /// The error number of a removal that failed, else 0.
        int failure() const noexcept { return failure_; }

    private:
        friend ExtendedAttributes;
        Visit(detail::TreeWalk& walk, bool removed, int failure) noexcept
            : walk_(&walk), removed_(removed), failure_(failure) {}

        detail::TreeWalk* walk_; ///< Stands at the entry.
        bool removed_;
        int failure_;
    };

    explicit ExtendedAttributes(std::filesystem::path filePath);

    const std::filesystem::path& filePath() const noexcept { return filePath_; }

    /// The attribute's value. Its size is asked for first, always of what a link points to. A value
    /// that grows before it is read is an error (`ERANGE`) unless it was empty, which it then
    /// stays; one that shrinks is followed by zeros.
    Data data(const ExtendedAttributeName& name, Options options) const;

    /// The same, decoded as `decodeUTF8` does; nothing is stripped.
    std::string string(const ExtendedAttributeName& name, Options options) const;

    /// Sets the attribute; no bytes make an empty attribute.
    void setData(std::span<const std::byte> bytes, const ExtendedAttributeName& name,
                 Options options) const;

    /// Sets the attribute to the bytes of the text, without a terminator.
    void setString(std::string_view text, const ExtendedAttributeName& name, Options options) const;

    /// Whether the file has the attribute, if only an empty one. Links are followed. Any failure
    /// means no.
    bool hasAttribute(const ExtendedAttributeName& name) const noexcept;

    /// Removes the attribute; that it is missing is an error.
    void removeAttribute(const ExtendedAttributeName& name, Options options) const;

    /// Removes the attribute from the file and, if that is a directory or a link to one, from
    /// everything below it that has the attribute. A missing file is no error.
    ///
    /// A directory comes before what is in it; otherwise the order is the system's. Links to
    /// directories below the root are not entered, nor are directories that cannot be read or have
    /// gone. Whether an entry has the attribute is asked as `hasAttribute` does; with `noFollow` a
    /// link to a file that has it is then itself to lose it. What does not have the attribute is
    /// not touched, and what was deleted before its turn is no error.
    ///
    /// The first removal that fails is thrown (`ENOENT` too, when the entry went just after it was
    /// asked), the entry's path in its text; what was removed
    /// before stays removed, and what comes later has not been looked at. Also thrown: `EMFILE`,
    /// `ENFILE` and `ENOMEM` when not even a few descriptors can be had, since entries would be
    /// missed.
    ///
    /// The tree may be as deep as it likes and its paths longer than the system's calls take.
    /// macOS: an entry with a path of 1024 bytes or more has to be opened; a socket there, or a
    /// file that may not be read, counts as one that does not have the attribute. Memory grows with
    /// the depth, not with the number of entries; at most 34 descriptors are open at a time. Where
    /// others change the tree meanwhile, what is moved may be missed or met twice.
    void removeAttributeRecursive(const ExtendedAttributeName& name, Options options) const;

    /// The same, with `visit` called after each entry, the root first, on this thread. A removal
    /// that fails is told to `visit` instead of being thrown, and the walk goes on. What `visit`
    /// throws ends the walk and passes through.
    void removeAttributeRecursive(const ExtendedAttributeName& name, Options options,
                                  const std::function<void(const Visit&)>& visit) const;

private:
    using Observer = std::function<void(const Visit&)>;
    void removeFromTree(const ExtendedAttributeName& name, Options options,
                        const Observer* visit) const;

    std::filesystem::path filePath_;
};

inline constexpr ExtendedAttributes::Options ExtendedAttributes::Options::noFollow{0x01};
inline constexpr ExtendedAttributes::Options ExtendedAttributes::Options::create{0x02};
inline constexpr ExtendedAttributes::Options ExtendedAttributes::Options::replace{0x04};
inline constexpr ExtendedAttributes::Options ExtendedAttributes::Options::noSecurity{0x08};
inline constexpr ExtendedAttributes::Options ExtendedAttributes::Options::noDefault{0x10};
inline constexpr ExtendedAttributes::Options ExtendedAttributes::Options::showCompression{0x20};

} // namespace Platform
