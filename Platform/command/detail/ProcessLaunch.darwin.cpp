#include <Platform/command/detail/ProcessLaunch.h>

#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemCall.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

#include <fcntl.h>
#include <spawn.h>

namespace Platform::detail {

namespace {

/// posix_spawn takes descriptors below this number (OPEN_MAX), whatever this process's limit is.
constexpr int descriptorLimit = 10240;

/// The descriptors of a launch, with numbers that posix_spawn takes.
class LowDescriptors {
public:
    explicit LowDescriptors(const LaunchPlan& plan) noexcept : numbers_(plan.descriptors) {
        for (std::size_t i = 0; i < numbers_.size(); ++i) {
            if (numbers_[i] < descriptorLimit) continue;
            copies_[i] = FileDescriptor(trySystemCall(SystemCall::fcntl, [&] {
                return ::fcntl(numbers_[i], F_DUPFD_CLOEXEC, 3); // the lowest that is free
            }));
            if (error_ == 0 && !copies_[i]) error_ = errno;
            if (error_ == 0 && copies_[i].get() >= descriptorLimit) error_ = EMFILE;
            numbers_[i] = copies_[i].get();
        }
    }

    /// Why there are none: an error number, or 0.
    int error() const noexcept { return error_; }
    int operator[](std::size_t index) const noexcept { return numbers_[index]; }

private:
    std::array<FileDescriptor, 3> copies_;
    std::array<int, 3> numbers_;
    int error_ = 0;
};

/// The attributes and actions of a launch; the first failure counts.
class Description {
public:
    Description(const LaunchPlan& plan, const LowDescriptors& descriptors) noexcept {
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
            const int from = descriptors[static_cast<std::size_t>(number)];
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
    const LowDescriptors descriptors(plan);
    if (const int error = descriptors.error(); error != 0) {
        failure = {error, error == EMFILE ? LaunchStage::descriptors : LaunchStage::start};
        return process;
    }
    const Description description(plan, descriptors);
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
