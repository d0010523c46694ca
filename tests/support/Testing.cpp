#include <support/Testing.h>

#include <Platform/runtime/detail/Poller.h>

#include <spawn.h>

namespace Platform {

std::set<std::string> NothingLeft::state() {
    detail::Poller::shared(); // which stays for good
    const std::string status = "/proc/" + std::to_string(::getpid()) + "/status";
    std::set<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/fd")) {
        std::error_code gone;                                               // the directory's own
        if (std::filesystem::read_symlink(entry, gone) == status) continue; // likewise
        result.insert("descriptor " + entry.path().filename().string());
    }
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (int signal = 1; signal < 32; ++signal)
        if (sigismember(&mask, signal) == 1) result.insert("blocked " + std::to_string(signal));
    return result;
}

namespace Testing {

namespace {

std::FILE* temporaryFile() {
    std::FILE* const file = std::tmpfile();
    if (file) ::fcntl(::fileno(file), F_SETFD, FD_CLOEXEC);
    return file;
}

std::string contents(std::FILE* file) {
    std::rewind(file);
    return contentsOf("/dev/fd/" + std::to_string(::fileno(file)));
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (std::string& string : strings) result.push_back(string.data());
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> changedEnvironment(const Process::Environment& changes) {
    Process::Environment all = changes;
    for (auto& [name, value] : ProcessInfo::environment()) all.try_emplace(name, value);
    std::vector<std::string> entries;
    for (auto& [name, value] : all) {
        if (value) entries.push_back(name + "=" + *value);
    }
    return entries;
}

} // namespace

Process::Process(std::vector<std::string> arguments, const Environment& changes)
    : name_(arguments.at(0)), output_(temporaryFile(), &std::fclose),
      errors_(temporaryFile(), &std::fclose) {
    std::vector<std::string> environment = changedEnvironment(changes);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(output_.get()), 1);
    posix_spawn_file_actions_adddup2(&actions, ::fileno(errors_.get()), 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF |
                                              POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    for (const int fixed : {SIGKILL, SIGSTOP}) sigdelset(&signals, fixed); // macOS refuses them
    posix_spawnattr_setsigdefault(&attributes, &signals);
    const int error = posix_spawnp(&id_, name_.c_str(), &actions, &attributes,
                                   pointers(arguments).data(), pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        id_ = -1;
        ADD_FAILURE() << name_ << " does not start: " << std::generic_category().message(error);
        return;
    }
    // Leaves the end to be collected by `wait`: until then the id belongs to this process.
    ended_ = std::async(std::launch::async, [id = static_cast<id_t>(id_)] {
        siginfo_t info;
        while (::waitid(P_PID, id, &info, WEXITED | WNOWAIT) == -1 && errno == EINTR) {
        }
    });
}

Process::~Process() {
    if (id_ < 0) return;
    signalGroup(SIGKILL);
    wait();
}

void Process::signalGroup(int signal) const {
    if (id_ > 0) ::kill(-id_, signal);
}

Process::Result Process::wait(std::chrono::seconds limit) {
    if (id_ < 0) return {-1, "", ""};
    if (ended_.wait_for(limit) != std::future_status::ready) {
        ADD_FAILURE() << name_ << " has not ended in " << limit.count() << " s";
    }
    signalGroup(SIGKILL);
    ended_.wait();
    int status = 0;
    ::waitpid(std::exchange(id_, -1), &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contents(output_.get()),
            contents(errors_.get())};
}

} // namespace Testing
} // namespace Platform
