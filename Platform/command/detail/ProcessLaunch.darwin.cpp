#include <Platform/command/detail/ProcessLaunch.h>

#include <Platform/base/detail/SystemCall.h>

#include <cerrno>
#include <csignal>

#include <spawn.h>

namespace Platform::detail {

namespace {

/// The attributes and actions of a launch; the first failure counts.
class Description {
public:
    explicit Description(const LaunchPlan& plan) noexcept {
        note(::posix_spawnattr_init(&attributes_));
        note(::posix_spawn_file_actions_init(&actions_));
        sigset_t signals;
        sigemptyset(&signals);
        note(::posix_spawnattr_setsigmask(&attributes_, &signals));
        sigfillset(&signals);
        sigdelset(&signals, SIGKILL);
        sigdelset(&signals, SIGSTOP);
        note(::posix_spawnattr_setsigdefault(&attributes_, &signals));
        note(::posix_spawnattr_setpgroup(&attributes_, 0));
        const int group = plan.group == ProcessGroup::own               ? POSIX_SPAWN_SETPGROUP
                          : plan.group == ProcessGroup::ownInNewSession ? POSIX_SPAWN_SETSID
                                                                        : 0;
        note(::posix_spawnattr_setflags(
            &attributes_, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                             POSIX_SPAWN_CLOEXEC_DEFAULT | group)));
        if (plan.workingDirectory) {
            note(::posix_spawn_file_actions_addchdir_np(&actions_, plan.workingDirectory));
        }
        for (int number = 0; number < 3; ++number) {
            const int from = plan.descriptors[static_cast<std::size_t>(number)];
            note(::posix_spawn_file_actions_adddup2(&actions_, from, number));
        }
    }
    Description(const Description&) = delete;
    Description& operator=(const Description&) = delete;
    ~Description() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    int error() const noexcept { return error_; }
    const posix_spawnattr_t* attributes() const noexcept { return &attributes_; }
    const posix_spawn_file_actions_t* actions() const noexcept { return &actions_; }

private:
    void note(int error) noexcept {
        if (error_ == 0) error_ = error;
    }

    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
    int error_ = 0;
};

} // namespace

LaunchedProcess launchProcess(const LaunchPlan& plan, LaunchFailure& failure) noexcept {
    LaunchedProcess process;
    const Description description(plan);
    failure.number = description.error();
    if (failure.number != 0) return process;
    pid_t id = -1;
    const int result = trySystemCall(SystemCall::spawn, [&] {
        errno = ::posix_spawn(&id, plan.path, description.actions(), description.attributes(),
                              plan.arguments, plan.environment);
        return errno == 0 ? 0 : -1;
    });
    if (result == 0) {
        process.id = id;
    } else {
        // Which of its steps failed, the system does not say.
        failure = {errno, LaunchStage::execute};
    }
    return process;
}

} // namespace Platform::detail
