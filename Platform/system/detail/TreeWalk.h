#pragma once

#include <Platform/base/FileDescriptor.h>
#include <Platform/system/detail/DirectoryReader.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Platform::detail {

/// Walks a file and everything below it: see `ExtendedAttributes::removeAttributeRecursive`. It
/// stands at the file, the root, at first.
///
/// A directory is read before those in it are entered, whose names wait on one stack meanwhile;
/// that stack, and not a recursion, is what grows with the depth. Of directories with more such
/// names than `mostWaiting` the rest is read later. Far up the tree directories are closed, and
/// opened again when their turn comes.
class TreeWalk {
public:
    /// The most directories that are open besides the root and the one being opened.
    static constexpr std::size_t mostOpen = 32;
    /// Bytes of names after which a directory's reading pauses.
    static constexpr std::size_t mostWaiting = std::size_t{1} << 16;

    /// Throws as `next` does.
    explicit TreeWalk(const char* root);

    /// Moves on to the next entry; false when there is none. A root that is no directory, or cannot
    /// be opened, has nothing below it. Throws `Errno` when descriptors or memory of the system run
    /// out.
    bool next();

    /// The directory that `name` starts from, open or the current one. Holds, like the name, until
    /// `next` is called.
    int directory() const noexcept { return directory_; }
    const char* name() const noexcept { return entry_.name; }
    /// The root and the way from there. Holds until `next` is called.
    const std::string& path();

private:
    struct Level {
        FileDescriptor directory; ///< Empty while closed.
        std::uint64_t device = 0; ///< What the closed directory was, and where its reading stopped.
        std::uint64_t file = 0;
        std::int64_t bookmark = 0;
        std::int64_t count = 0; ///< Entries taken.
        std::size_t depth = 0;  ///< Steps from the root.
        std::size_t pathLength = 0;
        std::size_t namesBegin = 0; ///< Its names on the stack begin here,
        std::size_t nextName = 0;   ///< and the first not yet entered is here.
        bool isRead = false;        ///< To the end.
    };

    void enterRoot();
    void enterNext();
    void leave();
    FileDescriptor open(int directory, const char* name, bool followLink = false);
    void closeOne();
    void reopen(Level& level, const Level& below);
    FileDescriptor approach(int directory, std::string_view& path);
    FileDescriptor openUpwards(const Level& below, const Level& level);
    FileDescriptor openByName(const Level& level);
    static bool isSame(int directory, const Level& level);

    DirectoryReader reader_;
    DirectoryReader::Entry entry_{};
    int directory_;
    bool isAtRoot_ = true;
    FileDescriptor aboveRoot_; ///< Only while at a root whose path no call takes.
    std::vector<Level> levels_;
    std::size_t firstOpen_ = 1; ///< The levels before it, the root aside, are closed.
    std::string names_;         ///< Each with its NUL.
    std::string path_;          ///< Of the current directory, up to a slash; the name may follow.
    std::size_t rootLength_ = 0;
};

} // namespace Platform::detail
