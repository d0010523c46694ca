#include <Platform/system/detail/TreeWalk.h>

#include <Platform/base/detail/SystemCall.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform::detail {
namespace {

bool isShortage(int number) noexcept {
    return number == EMFILE || number == ENFILE || number == ENOMEM;
}

} // namespace

TreeWalk::TreeWalk(const char* root) : directory_(AT_FDCWD), path_(root) {
    std::string_view rest(path_);
    aboveRoot_ = approach(directory_, rest);
    if (aboveRoot_) directory_ = aboveRoot_.get();
    entry_.name = rest.data();
}

bool TreeWalk::next() {
    if (std::exchange(isAtRoot_, false)) enterRoot();
    while (!levels_.empty()) {
        Level& level = levels_.back();
        const std::size_t waiting = names_.size() - level.namesBegin;
        if (!reader_.isBetweenReads() || (!level.isRead && waiting < mostWaiting)) {
            if (reader_.next(level.directory.get(), entry_)) {
                ++level.count;
                directory_ = level.directory.get();
                if (entry_.mayBeDirectory) names_.append(entry_.name).push_back('\0');
                return true;
            }
            level.isRead = true;
        } else if (level.nextName < names_.size()) {
            enterNext();
        } else if (!level.isRead) {
            names_.resize(level.namesBegin);
            level.nextName = level.namesBegin;
        } else {
            leave();
        }
    }
    return false;
}

const std::string& TreeWalk::path() {
    if (isAtRoot_) return path_;
    path_.resize(levels_.back().pathLength);
    return path_.append(entry_.name);
}

void TreeWalk::enterRoot() {
    Level level;
    level.directory = open(directory_, entry_.name, true);
    aboveRoot_.reset();
    if (!level.directory) return;
    if (!path_.ends_with('/')) path_ += '/';
    rootLength_ = level.pathLength = path_.size();
    levels_.push_back(std::move(level));
}

void TreeWalk::enterNext() {
    Level& level = levels_.back();
    const char* const name = names_.data() + level.nextName;
    const std::size_t length = std::strlen(name);
    level.nextName += length + 1;
    Level entered;
    entered.directory = open(level.directory.get(), name);
    if (!entered.directory) return;

    path_.resize(level.pathLength);
    path_.append(name, length).push_back('/');
    entered.pathLength = path_.size();
    entered.depth = level.depth + 1;
    // A level that is done with is not returned to. The root stays, since paths begin there.
    if (level.isRead && level.nextName == names_.size() && levels_.size() > 1) {
        names_.resize(level.namesBegin);
        levels_.pop_back();
    }
    entered.namesBegin = entered.nextName = names_.size();
    levels_.push_back(std::move(entered));
    if (levels_.size() - firstOpen_ > mostOpen) closeOne();
}

void TreeWalk::leave() {
    const Level left = std::move(levels_.back());
    levels_.pop_back();
    names_.resize(left.namesBegin);
    if (levels_.empty()) return;
    Level& level = levels_.back();
    path_.resize(level.pathLength);
    if (levels_.size() == firstOpen_ && levels_.size() > 1) {
        --firstOpen_;
        reopen(level, left);
    }
}

/// Empty when it is no directory, has gone or may not be read.
FileDescriptor TreeWalk::open(int directory, const char* name, bool followLink) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
    for (;;) {
        FileDescriptor opened(trySystemCall(SystemCall::open, [&] {
            return ::openat(directory, name, followLink ? flags : flags | O_NOFOLLOW);
        }));
        if (opened || !isShortage(errno)) return opened;
        if (firstOpen_ + 1 >= levels_.size()) throwErrno();
        closeOne();
    }
}

/// Of those that are open, the root aside, the one that is farthest up.
void TreeWalk::closeOne() {
    Level& level = levels_[firstOpen_];
    struct stat status = {};
    systemCall(SystemCall::fstat, [&] { return ::fstat(level.directory.get(), &status); });
    level.device = static_cast<std::uint64_t>(status.st_dev);
    level.file = status.st_ino;
    level.bookmark = DirectoryReader::bookmark(level.directory.get(), level.count);
    level.directory.reset();
    ++firstOpen_;
}

void TreeWalk::reopen(Level& level, const Level& below) {
    level.directory = openUpwards(below, level);
    if (!level.directory) level.directory = openByName(level);
    if (!level.directory) { // it has gone, and what it held with it
        level.isRead = true;
        level.nextName = names_.size();
    } else if (!level.isRead) {
        reader_.resume(level.directory.get(), level.bookmark);
    }
}

/// From the directory that was just left; empty when that does not lead there any more.
FileDescriptor TreeWalk::openUpwards(const Level& below, const Level& level) {
    FileDescriptor directory;
    int from = below.directory.get();
    for (std::size_t depth = below.depth; from >= 0 && depth > level.depth; --depth) {
        directory = open(from, "..");
        from = directory.get();
    }
    if (from < 0 || !isSame(from, level)) directory.reset();
    return directory;
}

/// From the root down; empty when that does not lead there any more.
FileDescriptor TreeWalk::openByName(const Level& level) {
    const int root = levels_.front().directory.get();
    std::string_view rest(path_);
    rest.remove_prefix(rootLength_);
    FileDescriptor directory = approach(root, rest);
    const char* const name = path_.c_str() + (path_.size() - rest.size());
    directory = open(directory ? directory.get() : root, name);
    if (directory && !isSame(directory.get(), level)) directory.reset();
    return directory;
}

/// Opens directories on the way until what is left of the path, which ends in a NUL, is short
/// enough for one call. Returns the last one, if any; where the way ends early, the rest is too
/// long for all calls.
FileDescriptor TreeWalk::approach(int directory, std::string_view& path) {
    FileDescriptor last;
    while (path.size() >= PATH_MAX) {
        const std::size_t slash = path.rfind('/', PATH_MAX - 2);
        if (slash == path.npos) break;
        last = open(directory, std::string(path.substr(0, slash + 1)).c_str(), true);
        if (!last) break;
        directory = last.get();
        path.remove_prefix(std::min(path.find_first_not_of('/', slash), path.size()));
        if (path.empty()) path = ".";
    }
    return last;
}

bool TreeWalk::isSame(int directory, const Level& level) {
    struct stat status = {};
    systemCall(SystemCall::fstat, [&] { return ::fstat(directory, &status); });
    return static_cast<std::uint64_t>(status.st_dev) == level.device && status.st_ino == level.file;
}

} // namespace Platform::detail
