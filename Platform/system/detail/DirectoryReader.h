#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Platform::detail {

/// Reads the entries of open directories, one directory at a time, into one buffer.
class DirectoryReader {
public:
    struct Entry {
        const char* name;    ///< Holds until the next call.
        bool mayBeDirectory; ///< Some file systems do not tell.
    };

    DirectoryReader();

    /// The next entry, "." and ".." left out; false at the end, and where the directory cannot be
    /// read. Before another directory's turn this one is read until false, or `isBetweenReads`.
    bool next(int directory, Entry& entry);

    /// True when no entry waits in the buffer.
    bool isBetweenReads() const noexcept { return position_ == end_; }

    /// Where the directory goes on, for `resume`; between reads only. `count` entries were taken.
    static std::int64_t bookmark(int directory, std::int64_t count);
    /// Goes on from there with another descriptor of the directory, freshly opened.
    void resume(int directory, std::int64_t bookmark);

private:
    bool fill(int directory);

    std::unique_ptr<char[]> buffer_;
    const char* position_ = nullptr;
    const char* end_ = nullptr;
};

} // namespace Platform::detail
