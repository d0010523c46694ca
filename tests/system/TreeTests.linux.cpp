#include <system/Tree.h>

#include <Platform/system/detail/TreeWalk.h>

#include <malloc.h>

namespace Platform {
namespace {

namespace fs = std::filesystem;
using Options = ExtendedAttributes::Options;
using Visit = ExtendedAttributes::Visit;

/// How many files the system's own tool finds marked, itself following no links.
std::ptrdiff_t countMarked(const std::string& root) {
    const std::string found = run({"getfattr", "-R", "-P", "-h", "-n", name.rawValue, root}).output;
    return std::ranges::count(found, '#');
}

void removeFrom(const std::string& root) {
    ExtendedAttributes(root).removeAttributeRecursive(name, {});
}

/// What was visited, in order, with what came of it: "removed", "" or the failure's number.
using Visits = std::vector<std::pair<std::string, std::string>>;

Visits visitsOf(const std::string& root, Options options = {}) {
    Visits visits;
    ExtendedAttributes(root).removeAttributeRecursive(name, options, [&](const Visit& visit) {
        visits.emplace_back(visit.path(), visit.failure()   ? std::to_string(visit.failure())
                                          : visit.removed() ? "removed"
                                                            : "");
    });
    return visits;
}

/// The entries of a directory in the order that the system tells them.
std::vector<std::string> inOrder(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.push_back(entry.path().filename());
    return names;
}

FileDescriptor open(const std::string& path) {
    FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(directory) << path;
    return directory;
}

constexpr int entriesPerLevel = 5;

/// Makes `levels` directories below each other, where paths would be too long, everything marked.
/// Each `every`th level has two more directories with a file in each, which are told after the one
/// that leads down, so that a walk has to come back. Returns the deepest.
FileDescriptor makeChain(const std::string& root, int levels, int every = 1) {
    FileDescriptor at = open(root);
    for (int level = 0; level < levels; ++level) {
        const std::string here = "/proc/self/fd/" + std::to_string(at.get()) + "/";
        for (const char* each : {"a", "b", "c"})
            if (*each == 'a' || level % every == 0) folder(here + each);
        const std::vector<std::string> names = inOrder(here);
        for (const std::string& each : names) {
            mark(here + each);
            if (each != names.front()) mark(file(here + each + "/f"));
        }
        at = open(here + names.front());
    }
    return at;
}

// Sanitizers are slow.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int part = 5;
#else
constexpr int part = 1;
#endif

} // namespace

TEST_F(Tree, LosesTheAttributeWhereverItIs) {
    removeFrom(root);
    EXPECT_FALSE(isMarked(root)) << "an empty tree's root";
    const std::string outside = folder(scratch / "outside");
    file(outside + "/hidden");
    for (const char* each : {"/a\nb", "/\xff\xfe", "/..c", "/.d", "/ ", "/\xc3\xa4"}) {
        const std::string inside = folder(root + each);
        file(inside + each);
        file(root + each + each + "+");
    }
    ASSERT_EQ(::mkfifo((root + "/pipe").c_str(), 0600), 0);
    fs::create_symlink("..", root + "/.d/up");
    fs::create_symlink("loop", root + "/loop");
    fs::create_symlink("nowhere", root + "/dangling");
    fs::create_symlink(outside, root + "/way out");
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (!entry.is_symlink() && !entry.is_fifo()) mark(entry.path());
    mark(outside);
    mark(outside + "/hidden");
    EXPECT_EQ(countMarked(root), 18);
    removeFrom(root);
    EXPECT_EQ(countMarked(root), 0);
    {
        std::map<SystemCall, std::size_t> calls;
        const Faults counting([&](SystemCall call, std::size_t*) { return ++calls[call], 0; });
        const std::size_t entries = visitsOf(root).size();
        EXPECT_EQ(calls[SystemCall::getAttribute], entries) << "each is asked once";
        EXPECT_EQ(calls[SystemCall::removeAttribute], 0U);
    }
    EXPECT_FALSE(isMarked(outside)) << "the link to it was followed for itself,";
    EXPECT_TRUE(isMarked(outside + "/hidden")) << "but not entered";

    mark(root);
    mark(root + "/.d/.d");
    fs::create_symlink("root", scratch / "link");
    removeFrom(scratch / "link"); // a root that is a link is entered
    EXPECT_EQ(countMarked(root), 0);
    mark(root + "/ ");
    mark(root + "/ / ");
    removeFrom(root + "/ / ");
    EXPECT_EQ(countMarked(root), 1) << "a file's own only";
    removeFrom(scratch / "missing");
    EXPECT_EQ(visitsOf(scratch / "missing"), (Visits{{scratch / "missing", ""}}));
}

TEST_F(Tree, MayBeNamedByAPathOfAnyLength) {
    file(root + "/f");
    fs::current_path(scratch / "");
    for (std::string far : {root, std::string("root")}) {
        for (int i = 0; i < 5'000; ++i) far += "/.";
        for (const int olderSystem : {0, 1}) {
            const Faults faults(Faults::failing(SystemCall::attributeAt, ENOSYS, olderSystem));
            mark(root);
            mark(root + "/f");
            removeFrom(far + "/f");
            EXPECT_EQ(countMarked(root), 1);
            EXPECT_EQ(visitsOf(far + std::string(5'000, '/')).size(), 2U);
            EXPECT_EQ(countMarked(root), 0);
            removeFrom(far + "/missing" + far);
        }
    }
}

TEST_F(Tree, KeepsWhatItsLinksPointToWhenAskedFor) {
    const std::string outside = folder(scratch / "outside"), link = root + "/link";
    mark(outside);
    fs::create_symlink(outside, link);
    for (const int olderSystem : {0, 1}) {
        const Faults faults(Faults::failing(SystemCall::attributeAt, ENOSYS, olderSystem));
        mark(root);
        // It is there, but users have no attributes on links here.
        const std::pair refused(link, std::to_string(EPERM));
        EXPECT_EQ(visitsOf(root, Options::noFollow), (Visits{{root, "removed"}, refused}));
        EXPECT_EQ(visitsOf(link, Options::noFollow), (Visits{refused}));
        EXPECT_TRUE(isMarked(outside));
    }
}

TEST_F(Tree, KeepsWhatComesAfterAFailure) {
    makeChain(root, 5);
    Visits order;
    {
        const Faults failing(Faults::failing(SystemCall::removeAttribute, EROFS, 1000));
        order = visitsOf(root);
    }
    ASSERT_EQ(order.size(), 1U + 5 * entriesPerLevel);
    std::set<std::string> before{fs::path(root).parent_path()};
    for (const auto& [path, outcome] : order) {
        EXPECT_EQ(outcome, std::to_string(EROFS));
        EXPECT_TRUE(before.contains(fs::path(path).parent_path())) << path;
        before.insert(path);
    }
    int removals = 0;
    const Faults sixth([&](SystemCall call, std::size_t*) {
        return call == SystemCall::removeAttribute && ++removals == 6 ? EPERM : 0;
    });
    try {
        removeFrom(root);
        ADD_FAILURE() << "nothing thrown";
    } catch (const Errno& error) {
        EXPECT_STREQ(error.what(), Errno(EPERM, order[5].first).what());
    }
    for (std::size_t i = 0; i < order.size(); ++i)
        EXPECT_EQ(isMarked(order[i].first), i >= 5) << order[i].first;
    const ExtendedAttributes tree(root);
    EXPECT_THROW(tree.removeAttributeRecursive(name, {}, [](const Visit&) { throw 7; }), int);
}

TEST_F(Tree, MayBeDeeperThanPathsAndDescriptorsReach) {
    constexpr int levels = 5'000 / part, every = 20;
    const FileDescriptor deepest = makeChain(root, levels, every);
    for (const bool olderSystem : {true, false}) {
        std::ptrdiff_t held = 0, most = 0;
        const Faults faults([&](SystemCall call, std::size_t*) {
            held += (call == SystemCall::open) - (call == SystemCall::close);
            most = std::max(most, held);
            if (!olderSystem) return 0;
            return call == SystemCall::attributeAt       ? ENOSYS
                   : call == SystemCall::removeAttribute ? EROFS
                                                         : 0;
        });
        std::size_t longest = 0;
        const Visits visits = visitsOf(root);
        EXPECT_EQ(visits.size(), 1 + levels + levels / every * (entriesPerLevel - 1));
        for (const auto& [path, outcome] : visits) {
            ASSERT_EQ(outcome, olderSystem ? std::to_string(EROFS) : "removed");
            longest = std::max(longest, path.size());
        }
        EXPECT_EQ(longest, root.size() + 2 * levels);
        EXPECT_EQ(most, 34);
        EXPECT_EQ(held, 0);
    }
    EXPECT_EQ(::fgetxattr(deepest.get(), name.rawValue.c_str(), nullptr, 0), -1);
}

TEST_F(Tree, NeedsFewDescriptors) {
    makeChain(root, 100);
    std::vector<FileDescriptor> next; // the numbers that are free, with gaps perhaps
    std::vector<rlim_t> numbers;
    for (int i = 0; i < 5; ++i)
        numbers.push_back(static_cast<rlim_t>(next.emplace_back(open(root)).get()));
    next.clear();
    struct Limit {
        explicit Limit(rlim_t limit) {
            ::getrlimit(RLIMIT_NOFILE, &usual);
            const rlimit lower{limit, usual.rlim_max};
            ::setrlimit(RLIMIT_NOFILE, &lower);
        }
        ~Limit() { ::setrlimit(RLIMIT_NOFILE, &usual); }
        rlimit usual{};
    };
    std::size_t visited = 0;
    for (const std::size_t free : {0U, 1U, 4U}) {
        const int number = thrownNumber([&] {
            const Limit limit(numbers[free]); // gone when the error is looked at
            visited = visitsOf(root).size();
        });
        EXPECT_EQ(number, free < 4 ? EMFILE : 0) << "rather than miss entries";
    }
    EXPECT_EQ(visited, 1U + 100 * entriesPerLevel);
}

// A directory with more directories in it than wait at a time is closed while some of them are
// walked, and goes on where it was.
TEST_F(Tree, ReadsLargeDirectoriesInParts) {
    constexpr int count = 1'200, levels = 40;
    static_assert(count * 200 > 3 * detail::TreeWalk::mostWaiting);
    const std::string large = folder(root + "/large") + "/";
    for (int i = 0; i < count; ++i) mark(folder(large + std::to_string(i) + std::string(200, 'x')));
    const std::vector<std::string> names = inOrder(large);
    for (const std::size_t each : {0U, 1U, count / 2U, count - 1U})
        makeChain(large + names[each], levels);
    const Visits visits = visitsOf(root);
    const std::map different(visits.begin(), visits.end());
    EXPECT_EQ(different.size(), 2U + count + 4 * levels * entriesPerLevel);
    EXPECT_EQ(visits.size(), different.size());
    EXPECT_EQ(countMarked(root), 0);
}

// Where directories above are closed, the way back is looked for from below and from the root.
TEST_F(Tree, MayBeMovedWhileItIsWalked) {
    constexpr std::size_t levels = 60, open = detail::TreeWalk::mostOpen;
    constexpr std::size_t everything = 1 + entriesPerLevel * levels;
    const auto visitsWhile = [&](bool movesInside, bool movesTop) {
        run({"rm", "-rf", root, scratch / "elsewhere"});
        fs::create_directory(root);
        makeChain(root, levels);
        std::size_t visited = 0;
        ExtendedAttributes(root).removeAttributeRecursive(name, {}, [&](const Visit& visit) {
            ++visited;
            const std::string path = visit.path();
            if (path.size() != root.size() + 2 * levels || (!movesInside && !movesTop)) return;
            // The directory of this entry is open, and so are those above it up to `moved`.
            const std::string moved = path.substr(0, root.size() + 2 * (levels - open));
            if (std::exchange(movesInside, false)) fs::rename(moved, scratch / "elsewhere");
            if (std::exchange(movesTop, false))
                fs::rename(path.substr(0, root.size() + 2), root + "/renamed");
        });
        return visited;
    };
    EXPECT_EQ(visitsWhile(true, false), everything) << "by the names";
    EXPECT_EQ(visitsWhile(false, true), everything) << "upwards";
    EXPECT_EQ(visitsWhile(true, true), everything - 2 * (levels - open - 1))
        << "without the files beside those that are out of reach";
}

TEST_F(Tree, MayBeDeletedWhileItIsWalked) {
    constexpr int folders = 50, files = 20;
    const auto inside = [&](int i) { return root + "/" + std::to_string(i % folders); };
    for (int i = 0; i < folders; ++i) {
        mark(folder(inside(i)));
        for (int j = 0; j < files; ++j) mark(file(inside(i) + "/" + std::to_string(j)));
    }
    int visited = 0;
    ExtendedAttributes(root).removeAttributeRecursive(name, {}, [&](const Visit& visit) {
        EXPECT_EQ(visit.failure(), 0) << visit.path();
        if (++visited % 40 == 0) fs::remove_all(inside(visited * 7));
        if (visited % 10 == 0) fs::remove_all(visit.path());
    });
    EXPECT_EQ(countMarked(root), 0);
    EXPECT_GT(visited, 100);
    EXPECT_FALSE(fs::is_empty(root));

    const std::string outside = folder(scratch / "outside"), swapped = folder(root + "/swapped");
    mark(file(outside + "/hidden"));
    ExtendedAttributes(root).removeAttributeRecursive(name, {}, [&](const Visit& visit) {
        if (visit.path() != swapped) return;
        fs::remove(swapped); // after it was seen to be a directory, and before it is entered
        fs::create_symlink(outside, swapped);
    });
    EXPECT_TRUE(isMarked(outside + "/hidden"));

    mark(file(root + "/last"));
    const Faults between([&](SystemCall call, std::size_t*) {
        if (call == SystemCall::removeAttribute) fs::remove(root + "/last");
        return 0;
    });
    EXPECT_THROW(removeFrom(root), Errno);
}

TEST_F(Tree, HidesWhatMayNotBeReadAndKeepsWhatMayNotBeChanged) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can prepare this, and put its powers aside";
    ::chmod((scratch / "").c_str(), 0755);
    for (const char* each : {"/closed", "/listed", "/open"})
        mark(file(folder(root + each) + "/file"));
    mark(root + "/open");
    ::chmod((root + "/closed").c_str(), 0700);
    ::chmod((root + "/listed").c_str(), 0744); // readable, but not searchable
    for (const char* each : {"", "/open/file"})
        ASSERT_EQ(::chown((root + each).c_str(), 65534, 65534), 0);
    ASSERT_EQ(::seteuid(65534), 0);
    const Visits visits = visitsOf(root);
    EXPECT_EQ(thrownNumber([&] { removeFrom(root); }), EACCES);
    removeFrom(root + "/closed");
    ASSERT_EQ(::seteuid(0), 0);
    std::string all;
    for (const auto& [path, outcome] : std::map(visits.begin(), visits.end()))
        all += path.substr(root.size()) + ": " + outcome + "\n";
    EXPECT_EQ(all, ": removed\n/closed: \n/listed: \n/listed/file: \n/open: " +
                       std::to_string(EACCES) + "\n/open/file: removed\n");
    EXPECT_EQ(countMarked(root), 3);
}

TEST_F(Tree, MayHaveAnyNumberOfEntries) {
    constexpr int perFolder = 1'000 / part;
    for (int i = 0; i < 100; ++i) {
        const std::string inside = folder(root + "/" + std::to_string(i));
        const std::string only = file(inside + "/0");
        mark(only);
        // Entries are what counts, and links are quickly made.
        for (int j = 1; j < perFolder; ++j)
            fs::create_hard_link(only, inside + "/" + std::to_string(j));
    }
    std::size_t visited = 0, removed = 0, most = 0;
    const std::size_t before = ::mallinfo2().uordblks;
    ExtendedAttributes(root).removeAttributeRecursive(name, {}, [&](const Visit& visit) {
        ++visited;
        removed += visit.removed();
        if (visited % 100 == 0) most = std::max(most, ::mallinfo2().uordblks);
    });
    EXPECT_EQ(visited, 1 + 100 + 100 * perFolder);
    EXPECT_EQ(removed, 1 + 100);
    EXPECT_LT(most, before + 200'000) << "memory grows with the entries";
    EXPECT_EQ(countMarked(root), 0);
}

} // namespace Platform
