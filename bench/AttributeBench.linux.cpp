#include <Platform/system/ExtendedAttributes.h>

#include "Comparison.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace Bench {

namespace {

namespace fs = std::filesystem;

constexpr const char* attribute = "user.platform-bench";

int checked(int result, const std::string& what) {
    if (result < 0) throw std::system_error(errno, std::system_category(), what);
    return result;
}

void mark(const std::string& path) {
    checked(setxattr(path.c_str(), attribute, "0083;5f3c7f1a;Browser;", 22, 0), path);
}

/// In memory unless TMPDIR says otherwise: the disk would do most of the work, for both sides.
/// Empty where files have no attributes.
std::string newFolder() {
    std::vector<std::string> places{fs::temp_directory_path()};
    if (fs::exists("/dev/shm"))
        places.insert(places.begin() + (getenv("TMPDIR") != nullptr), "/dev/shm");
    for (const std::string& place : places) {
        std::string folder = place + "/platform-bench-XXXXXX";
        if (!mkdtemp(folder.data())) continue;
        if (setxattr(folder.c_str(), "user.probe", "", 0, 0) == 0) return folder;
        fs::remove(folder);
    }
    return "";
}

/// So many files, a hundred in each directory, about as deep as those of programs and sources lie.
class Tree {
public:
    explicit Tree(std::int64_t entries) : root_(newFolder()) {
        if (root_.empty()) return;
        for (std::int64_t i = 0; i < entries; ++i) {
            const std::string folder =
                root_ + "/Some.app/Contents/Resources/" + std::to_string(i / 100) + ".lproj";
            if (i % 100 == 0) fs::create_directories(folder);
            files_.push_back(folder + "/a file as names go " + std::to_string(i));
            std::ofstream(files_.back()) << "";
        }
    }
    ~Tree() {
        std::error_code ignored;
        if (!root_.empty()) fs::remove_all(root_, ignored);
    }

    const std::string& root() const { return root_; }

    /// A round of a side that is to remove the attribute from everything. Before, so many of a
    /// hundred files get it; afterwards none may have it.
    template <class Remove>
    Round round(std::int64_t percent, Remove remove) const {
        return [=, this] {
            const auto step = static_cast<std::size_t>(100 / percent);
            for (std::size_t i = 0; i < files_.size(); i += step) mark(files_[i]);
            const Seconds time = timed([&] { remove(root_.c_str()); });
            for (std::size_t i = 0; i < files_.size(); i += step)
                if (getxattr(files_[i].c_str(), attribute, nullptr, 0) >= 0)
                    throw std::runtime_error("still there: " + files_[i]);
            return time;
        };
    }

private:
    std::string root_;
    std::vector<std::string> files_;
};

/// Made at their first use, and kept for the benchmarks that follow.
const Tree& treeOf(std::int64_t entries) {
    static std::map<std::int64_t, std::unique_ptr<Tree>> trees;
    auto& tree = trees[entries];
    if (!tree) tree = std::make_unique<Tree>(entries);
    return *tree;
}

void ours(const char* root) {
    Platform::ExtendedAttributes(root).removeAttributeRecursive(
        Platform::ExtendedAttributeName(attribute), {});
}

// The shortest walk: nothing is asked that the directory tells, and every call starts from there.
struct Arguments {
    std::uint64_t value;
    std::uint32_t size, flags;
};

void walk(int directory) {
    constexpr long getxattratNumber = 464, removexattratNumber = 466;
    constexpr std::size_t size = 32768;
    char* const buffer = static_cast<char*>(std::malloc(size));
    ssize_t count = 0;
    while ((count = getdents64(directory, buffer, size)) > 0) {
        for (char* at = buffer; at < buffer + count;) {
            const auto* entry = reinterpret_cast<const dirent64*>(at);
            at += entry->d_reclen;
            const char* name = entry->d_name;
            if (!strcmp(name, ".") || !strcmp(name, "..")) continue;
            Arguments none = {};
            if (syscall(getxattratNumber, directory, name, 0, attribute, &none, sizeof none) >= 0)
                syscall(removexattratNumber, directory, name, 0, attribute);
            if (entry->d_type == DT_DIR) {
                const int below =
                    openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
                if (below < 0) continue;
                walk(below);
                close(below);
            }
        }
    }
    std::free(buffer);
}

void shortestWalk(const char* root) {
    const int directory = checked(open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC), root);
    walk(directory);
    close(directory);
}

void withNftw(const char* root) {
    constexpr int descriptors = 32;
    nftw(
        root,
        [](const char* path, const struct stat*, int, struct FTW*) {
            if (getxattr(path, attribute, nullptr, 0) >= 0) removexattr(path, attribute);
            return 0;
        },
        descriptors, FTW_PHYS);
}

/// `end` is "+" for as many files as one program takes, ";" for a program each.
template <char end>
void withFind(const char* root) {
    posix_spawn_file_actions_t toNowhere;
    posix_spawn_file_actions_init(&toNowhere);
    posix_spawn_file_actions_addopen(&toNowhere, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const char* const arguments[] = {
        "find", root, "-exec", "setfattr", "-x", attribute, "{}", end == '+' ? "+" : ";", nullptr};
    pid_t child = 0;
    errno =
        posix_spawnp(&child, "find", &toNowhere, nullptr, const_cast<char**>(arguments), environ);
    checked(errno == 0 ? 0 : -1, "find");
    posix_spawn_file_actions_destroy(&toNowhere);
    int status = 0;
    checked(waitpid(child, &status, 0), "waitpid");
}

template <class Bare>
void compare(benchmark::State& state, Bare bare, double mostRatio) {
    const Tree& tree = treeOf(state.range(0));
    if (tree.root().empty()) {
        state.SkipWithError("no user attributes on the file systems here");
        return;
    }
    compareTimes(state, state.range(0), tree.round(state.range(1), ours),
                 tree.round(state.range(1), bare));
    aimAtRatio(state, mostRatio);
}

void besideC(benchmark::State& state) {
    compare(state, shortestWalk, 1 / 0.9);
}

void besideNftw(benchmark::State& state) {
    compare(state, withNftw, 1 / 2.0);
}

void besideFind(benchmark::State& state) {
    compare(state, withFind<'+'>, 1 / 3.0);
}

void besideFindForEach(benchmark::State& state) {
    compare(state, withFind<';'>, 1 / 3.0);
}

const int registered = [] {
    const std::vector<std::vector<std::int64_t>> cases{{1'000, 10'000, 100'000}, {1, 100}};
    const auto add = [&](const char* name, void (*function)(benchmark::State&)) {
        return benchmark::RegisterBenchmark(name, function)
            ->ArgNames({"entries", "percent"})
            ->UseManualTime();
    };
    add("attribute of a tree, C", besideC)->ArgsProduct(cases);
    add("attribute of a tree, nftw", besideNftw)->ArgsProduct(cases);
    add("attribute of a tree, find +", besideFind)->ArgsProduct(cases);
    add("attribute of a tree, find ;", besideFindForEach)->ArgsProduct({{1'000}, {1, 100}});
    return 0;
}();

} // namespace
} // namespace Bench
