#include <Platform/system/detail/DirectoryReader.h>

#include <Platform/base/detail/SystemCall.h>

#include <cstring>

#include <dirent.h>
#include <unistd.h>

namespace Platform::detail {
namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 15;

} // namespace

DirectoryReader::DirectoryReader() : buffer_(new char[bufferSize]) {}

bool DirectoryReader::next(int directory, Entry& entry) {
    while (position_ != end_ || fill(directory)) {
        const auto* const found = reinterpret_cast<const dirent64*>(position_);
        position_ += found->d_reclen;
        if (std::strcmp(found->d_name, ".") == 0 || std::strcmp(found->d_name, "..") == 0) continue;
        entry.name = found->d_name;
        entry.mayBeDirectory = found->d_type == DT_DIR || found->d_type == DT_UNKNOWN;
        return true;
    }
    return false;
}

bool DirectoryReader::fill(int directory) {
    const auto count = trySystemCall(SystemCall::listDirectory, [&] {
        return ::getdents64(directory, buffer_.get(), bufferSize);
    });
    position_ = end_ = buffer_.get();
    if (count > 0) end_ += count;
    return count > 0;
}

std::int64_t DirectoryReader::bookmark(int directory, std::int64_t) {
    return ::lseek(directory, 0, SEEK_CUR);
}

void DirectoryReader::resume(int directory, std::int64_t bookmark) {
    ::lseek(directory, bookmark, SEEK_SET);
}

} // namespace Platform::detail
