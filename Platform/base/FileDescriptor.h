#pragma once

#include <Platform/base/Data.h>
#include <Platform/base/Export.h>

#include <cstddef>
#include <span>

namespace Platform {

/// The one owner of an open file descriptor: closes it when it goes. Nothing else in the library
/// closes descriptors.
///
/// Move-only; a moved-from owner is empty. Failures are thrown as `Errno` with the number of the
/// failing call; interrupted calls are repeated and never reported. The operations block as the
/// descriptor does. Const operations are callable from any thread, but not while another thread
/// closes the descriptor.
class PLATFORM_EXPORT FileDescriptor {
public:
    /// Owns nothing.
    FileDescriptor() noexcept = default;
    /// Takes ownership of `descriptor`; a negative number is nothing.
    explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}

    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { reset(); }

    /// The descriptor, still owned here; -1 when empty.
    int get() const noexcept { return descriptor_; }
    /// True while a descriptor is owned.
    explicit operator bool() const noexcept { return descriptor_ >= 0; }

    /// Gives the descriptor up to the caller, unclosed; -1 when empty.
    [[nodiscard]] int release() noexcept;

    /// Closes the descriptor, if there is one. The close is never repeated, since the number may
    /// belong to another thread by then; its failure is ignored and `errno` is kept.
    void reset() noexcept;

    /// One read of at most `buffer.size()` bytes. Returns the count; 0 is end-of-file.
    std::size_t read(std::span<std::byte> buffer) const;

    /// One read into `buffer`; returns a copy of what came. Empty at end-of-file, and without a
    /// read when the buffer is empty.
    Data readData(std::span<std::byte> buffer) const;

    /// Reads in chunks of 4096 bytes until end-of-file and returns everything, after what `result`
    /// holds already. A failure discards what was read before it.
    Data readToEnd(Data result = {}) const;

    /// One write of all bytes. Returns the count written, which may be short; completing it is
    /// the caller's business. Where the reader has gone: `EPIPE` and no SIGPIPE (macOS: on the
    /// descriptors that the library opens to write to).
    std::size_t write(std::span<const std::byte> bytes) const;

private:
    int descriptor_ = -1;
};

} // namespace Platform
