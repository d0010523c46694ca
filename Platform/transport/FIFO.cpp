#include <Platform/transport/FIFO.h>

#include <Platform/base/Errno.h>
#include <Platform/base/TemporaryDirectory.h>
#include <Platform/base/UUID.h>
#include <Platform/base/detail/Sigpipe.h>
#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

using detail::systemCall;
using detail::SystemCall;

FIFO::ReadHandle::ReadHandle(FileDescriptor descriptor, std::shared_ptr<FIFO> fifo) noexcept
    : fifo_(std::move(fifo)), descriptor_(std::move(descriptor)) {}

Data FIFO::ReadHandle::read(std::size_t upToCount) const {
    Data bytes;
    bytes.truncate(descriptor_.read(bytes.appendUninitialized(upToCount)));
    return bytes;
}

std::optional<Data> FIFO::ReadHandle::readToEnd(Data result) const {
    const std::size_t before = result.size();
    result = descriptor_.readToEnd(std::move(result));
    if (result.size() == before) return std::nullopt;
    return result;
}

FIFO::WriteHandle::WriteHandle(FileDescriptor descriptor, std::shared_ptr<FIFO> fifo) noexcept
    : fifo_(std::move(fifo)), descriptor_(std::move(descriptor)) {}

std::size_t FIFO::WriteHandle::write(std::span<const std::byte> bytes) const {
    return descriptor_.write(bytes);
}

FIFO::FIFO(Token, std::string path, bool removesAtEnd) noexcept
    : path_(std::move(path)), removesAtEnd_(removesAtEnd) {}

FIFO::~FIFO() {
    if (!removesAtEnd_) return;
    try {
        unlink();
    } catch (...) { // somebody else may have removed it; no matter.
    }
}

std::shared_ptr<FIFO> FIFO::create() {
    return createAtPath(makeTemporaryPipePath());
}

std::shared_ptr<FIFO> FIFO::createAtPath(std::string path) {
    auto fifo = std::make_shared<FIFO>(Token{}, std::move(path), true);
    const int result = detail::trySystemCall(SystemCall::mkfifo,
                                             [&] { return ::mkfifo(fifo->path_.c_str(), 0600); });
    if (result != 0) {
        fifo->removesAtEnd_ = false; // what is there is not ours
        throw Errno(errno, fifo->path_);
    }
    return fifo;
}

std::shared_ptr<FIFO> FIFO::openAtPath(std::string path) {
    return std::make_shared<FIFO>(Token{}, std::move(path), false);
}

namespace {

FileDescriptor open(const std::string& path, int mode) {
    FileDescriptor descriptor(
        systemCall(SystemCall::open, [&] { return ::open(path.c_str(), mode | O_CLOEXEC); }));
    // A path from the environment may name anything: never write to a file, nor remove it.
    struct stat status;
    systemCall(SystemCall::fstat, [&] { return ::fstat(descriptor.get(), &status); });
    if (!S_ISFIFO(status.st_mode)) throw Errno(EINVAL, path + " is not a named pipe");
    return descriptor;
}

void rename(const std::string& from, const std::string& to) {
    systemCall(SystemCall::rename, [&] { return ::rename(from.c_str(), to.c_str()); });
}

} // namespace

FIFO::ReadHandle FIFO::handleForReading() {
    FileDescriptor descriptor = open(path_, O_RDONLY);
    detail::suppressSigpipe(descriptor.get());
    return {std::move(descriptor), shared_from_this()};
}

FIFO::WriteHandle FIFO::handleForWriting() {
    FileDescriptor descriptor = open(path_, O_WRONLY);
    detail::suppressSigpipe(descriptor.get());
    return {std::move(descriptor), shared_from_this()};
}

Data FIFO::receive(std::size_t upToCount) {
    return handleForReading().read(upToCount);
}

std::size_t FIFO::send(std::span<const std::byte> bytes) {
    return handleForWriting().write(bytes);
}

void FIFO::unlink() {
    unlinkHoldingOpen().reset();
}

FileDescriptor FIFO::unlinkHoldingOpen() {
    if (unlinked_) return {};
    // Who is released from an open for writing goes on to write, and opens the path again for the
    // answer: were the pipe still there, it would read its own words.
    const std::string aside = removesAtEnd_ ? siblingPath() : path_;
    if (removesAtEnd_) rename(path_, aside);
    try {
        // Counts as a reader and a writer and never blocks: it lets every blocked opener go on.
        FileDescriptor releasing = open(aside, O_RDWR | O_NONBLOCK);
        systemCall(SystemCall::unlink, [&] { return ::unlink(aside.c_str()); });
        unlinked_ = true;
        return releasing;
    } catch (...) {
        if (removesAtEnd_) rename(aside, path_);
        throw;
    }
}

FileDescriptor FIFO::holdOpen() const {
    return open(path_, O_RDWR | O_NONBLOCK);
}

bool FIFO::hasReader() const {
    const FileDescriptor writing(detail::trySystemCall(SystemCall::open, [&] {
        return ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    }));
    return static_cast<bool>(writing);
}

std::string FIFO::siblingPath() const {
    return path_.substr(0, path_.rfind('/') + 1) + makeUUID();
}

} // namespace Platform
