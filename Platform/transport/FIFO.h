#pragma once

#include <Platform/base/Data.h>
#include <Platform/base/Export.h>
#include <Platform/base/FileDescriptor.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace Platform {

/// A named pipe in the file system.
///
/// Shared: kept alive by its owners and by every handle that is open on it. The object that created
/// the pipe removes it when it goes, at the latest; one that adopted an existing pipe does so only
/// when told.
///
/// Every operation blocks the calling thread: opens wait for the other side, reads for bytes or
/// end-of-file. Not synchronised. Failures are thrown as `Errno`.
class PLATFORM_EXPORT FIFO : public std::enable_shared_from_this<FIFO> {
    struct Token {};

public:
    /// An open end of the pipe. Move-only; the descriptor is closed when the handle goes.
    class ReadHandle {
    public:
        /// One read: at most `count` bytes, none at end-of-file.
        Data read(std::size_t upToCount) const;

        /// Reads until end-of-file, after what `result` holds already. Absent when that came before
        /// any byte.
        std::optional<Data> readToEnd(Data result = {}) const;

    private:
        friend class FIFO;
        ReadHandle(FileDescriptor descriptor, std::shared_ptr<FIFO> fifo) noexcept;

        std::shared_ptr<FIFO> fifo_;
        FileDescriptor descriptor_;
    };

    class WriteHandle {
    public:
        /// One write of the whole buffer; the count may be short. `EPIPE`, and no signal, when the
        /// reader has gone.
        std::size_t write(std::span<const std::byte> bytes) const;

    private:
        friend class FIFO;
        WriteHandle(FileDescriptor descriptor, std::shared_ptr<FIFO> fifo) noexcept;

        std::shared_ptr<FIFO> fifo_;
        FileDescriptor descriptor_;
    };

    /// Creates a pipe at a fresh path in the user's private directory for them (see
    /// `makeTemporaryPipePath`).
    static std::shared_ptr<FIFO> create();

    /// Creates a pipe that only its owner may open. `EEXIST` when anything is there already.
    static std::shared_ptr<FIFO> createAtPath(std::string path);

    /// Adopts a pipe. Does not look at the path: a wrong one shows at the first open.
    static std::shared_ptr<FIFO> openAtPath(std::string path);

    FIFO(Token, std::string path, bool removesAtEnd) noexcept;
    FIFO(const FIFO&) = delete;
    FIFO& operator=(const FIFO&) = delete;
    ~FIFO();

    const std::string& path() const noexcept { return path_; }

    /// Opens the pipe anew; returns once the other side is open too. `ENOENT` when it was removed,
    /// `EINVAL` when the path names something else than a pipe.
    ReadHandle handleForReading();
    WriteHandle handleForWriting();

    /// Opens, reads once, closes.
    Data receive(std::size_t upToCount);

    /// Opens, writes once, closes. Returns the count written.
    std::size_t send(std::span<const std::byte> bytes);

    /// Removes the pipe, and releases whoever is blocked in an open of it: a reader then finds
    /// end-of-file, a writer `EPIPE`. Does nothing when this object has removed it before. On
    /// failure nothing is removed, and a later call may try again.
    void unlink();

    /// The same, but hands the descriptor that releases the openers to the caller, who keeps it
    /// open for as long as somebody may still be on the way into an open. Empty when there was
    /// nothing to remove.
    [[nodiscard]] FileDescriptor unlinkHoldingOpen();

    /// Lets whoever is blocked in an open of the pipe go on, for as long as the descriptor is kept:
    /// it counts as a reader and a writer. Does not block.
    FileDescriptor holdOpen() const;

    /// Whether somebody has the pipe open to read, or waits in such an open. Does not block.
    bool hasReader() const;

private:
    std::string siblingPath() const;

    std::string path_;
    bool removesAtEnd_;
    bool unlinked_ = false;
};

} // namespace Platform
