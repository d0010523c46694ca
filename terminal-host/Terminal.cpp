#include <terminal-host/Terminal.h>

#include <Platform/base/Data.h>
#include <Platform/base/Text.h>
#include <Platform/command/RunningInstance.h>
#include <Platform/runtime/Cancellation.h>
#include <Platform/runtime/CheckedContinuation.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <signal.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

namespace TerminalHost {

using namespace Platform;

struct Terminal::Modes {
    termios value{};
};

namespace {

/// The library's threads hold all signals up. As long as this lives, the one that it is on stops
/// the process when that uses the terminal in the background, as it should.
class StopsInBackground {
public:
    StopsInBackground() noexcept {
        sigset_t stops;
        sigemptyset(&stops);
        sigaddset(&stops, SIGTTIN);
        sigaddset(&stops, SIGTTOU);
        ::pthread_sigmask(SIG_UNBLOCK, &stops, &before_);
    }
    StopsInBackground(const StopsInBackground&) = delete;
    StopsInBackground& operator=(const StopsInBackground&) = delete;
    ~StopsInBackground() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_{};
};

} // namespace

/// A prompt that is being asked; and a pipe through which it is called off.
class Terminal::Question {
public:
    explicit Question(std::string prompt) : text(std::move(prompt)) {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) == -1) throw std::system_error(errno, std::generic_category());
        calledOff_ = FileDescriptor(ends[0]);
        callOff_ = FileDescriptor(ends[1]);
    }

    void callOff() const noexcept {
        [[maybe_unused]] const auto written = ::write(callOff_.get(), "", 1);
    }

    /// Blocks until the terminal can be read. False: the question was called off.
    bool waitFor(const FileDescriptor& terminal) const noexcept {
        for (;;) {
            fd_set readable;
            FD_ZERO(&readable);
            FD_SET(terminal.get(), &readable);
            FD_SET(calledOff_.get(), &readable);
            const int most = std::max(terminal.get(), calledOff_.get());
            if (::select(most + 1, &readable, nullptr, nullptr, nullptr) > 0) {
                return !FD_ISSET(calledOff_.get(), &readable);
            }
        }
    }

    const std::string text;
    Modes before;
    Modes silent;

private:
    FileDescriptor calledOff_;
    FileDescriptor callOff_;
};

std::shared_ptr<Terminal> Terminal::open(Signals& signals) {
    FileDescriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (!terminal) return nullptr;
    return std::shared_ptr<Terminal>(new Terminal(std::move(terminal), signals));
}

Terminal::Terminal(FileDescriptor terminal, Signals& signals)
    : terminal_(std::move(terminal)), signals_(signals), initial_([this] {
          auto modes = std::make_unique<Modes>();
          ::tcgetattr(terminal_.get(), &modes->value);
          return modes;
      }()) {}

Terminal::~Terminal() {
    restore();
}

Task<std::optional<std::string>> Terminal::ask(std::string prompt) {
    // It comes from the tool, and may hold what a terminal would obey.
    std::string text;
    for (std::string_view rest = prompt; !rest.empty();) {
        if (!text.empty()) text += '\n';
        text += singleLine(takeLine(rest));
    }
    Question question(text + ' ');
    const auto guard = co_await use_.guard();
    if (isTaskCancelled()) co_return std::nullopt;
    auto read = [this, &question]() -> Task<std::optional<std::string>> {
        auto reading = withCheckedContinuation<std::optional<std::string>>("ask", [&](auto answer) {
            reading_.submit([this, &question, answer] { answer.resume(readLine(question)); });
        });
        co_return co_await reading;
    };
    auto asking = withTaskCancellationHandler(read, [&question]() noexcept { question.callOff(); });
    co_return co_await asking;
}

Task<std::optional<int>> Terminal::lend(Cmd program) {
    const auto guard = co_await use_.guard();
    checkCancellation();
    Modes before;
    ::tcgetattr(terminal_.get(), &before.value);
    std::shared_ptr<Cmd::RunningInstance> running;
    std::exception_ptr failure;
    isLent_ = true; // before the program can say that it is ready
    try {
        running = program.start({.killAfter = std::chrono::seconds(2), .staysInGroup = true});
        auto waiting = running->wait();
        co_await waiting;
    } catch (...) {
        failure = std::current_exception();
    }
    // What was typed while the program had the terminal was for the program.
    auto settling = signals_.settled();
    co_await settling;
    setModes(before);
    isLent_ = false;
    const auto signal = running ? running->endingSignal() : std::nullopt;
    if (failure && (!signal || isTaskCancelled())) std::rethrow_exception(failure);
    co_return signal;
}

/// On a thread that may block.
std::optional<std::string> Terminal::readLine(Question& question) {
    const StopsInBackground stops;
    ::tcgetattr(terminal_.get(), &question.before.value);
    question.silent = question.before;
    termios& silent = question.silent.value;
    silent.c_iflag |= ICRNL;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ICANON | ISIG | ECHONL;
    // What was typed before was no answer to this.
    while (::tcsetattr(terminal_.get(), TCSAFLUSH, &silent) == -1 && errno == EINTR) continue;
    {
        const std::lock_guard guard(mutex_);
        show(question.text);
        asked_ = &question;
    }
    Data line = Data::secret();
    bool isComplete = false;
    while (!isComplete && question.waitFor(terminal_)) {
        const std::size_t before = line.size();
        const auto room = line.appendUninitialized(4096); // a terminal's line is no longer
        const ssize_t size = ::read(terminal_.get(), room.data(), room.size());
        line.truncate(before + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (size == -1 && errno == EINTR) continue;
        if (size <= 0) break;
        isComplete = line.view().ends_with('\n');
    }
    {
        const std::lock_guard guard(mutex_);
        asked_ = nullptr;
        setModes(question.before);
        if (!isComplete) show("\n");
    }
    if (!isComplete) return std::nullopt;
    return std::string(line.view().substr(0, line.size() - 1));
}

void Terminal::hold() noexcept {
    const std::lock_guard guard(mutex_);
    if (asked_) setModes(asked_->before);
}

void Terminal::goOn() noexcept {
    const std::lock_guard guard(mutex_);
    if (!asked_ || !isOurs()) return;
    Modes now;
    ::tcgetattr(terminal_.get(), &now.value);
    if (now.value.c_lflag == asked_->silent.value.c_lflag) return;
    setModes(asked_->silent);
    show(asked_->text);
}

void Terminal::restore() noexcept {
    setModes(*initial_);
}

bool Terminal::isOurs() const noexcept {
    return ::tcgetpgrp(terminal_.get()) == ::getpgrp();
}

void Terminal::setModes(const Modes& modes) const noexcept {
    if (isOurs()) ::tcsetattr(terminal_.get(), TCSADRAIN, &modes.value);
}

void Terminal::show(const std::string& text) const noexcept {
    [[maybe_unused]] const auto written = ::write(terminal_.get(), text.data(), text.size());
}

} // namespace TerminalHost
