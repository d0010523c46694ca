// event-loop-host COMMAND [TEXT]...: as minimal-host, but everything that the user sees happens on
// the thread of an event loop, as window systems want it: each edit is a window that is opened
// there, and closed there when the user has decided or the tool has gone.
#include <Platform/Platform.h>

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using Platform::Task;

/// What a window system brings along.
class EventLoop {
public:
    /// Has the event handled on the loop's thread. From any thread.
    void post(std::function<void()> event) {
        const std::lock_guard guard(mutex_);
        events_.push_back(std::move(event));
        changed_.notify_one();
    }

    void run() {
        while (!hasEnded_) {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return !events_.empty(); });
            const auto event = std::move(events_.front());
            events_.pop_front();
            lock.unlock();
            event();
        }
    }

    void end() { hasEnded_ = true; } // from an event

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> events_;
    bool hasEnded_ = false;
};

/// One edit and its window; touched on the loop's thread only.
struct Edit {
    std::string path;
    std::optional<Platform::CheckedContinuation<bool>> answer{}; // while the window is open
    bool isWithdrawn = false;
};

/// The application: all on the loop's thread, but `edit`.
class Application {
public:
    explicit Application(std::vector<std::string> texts) : texts_(texts.begin(), texts.end()) {}

    EventLoop loop;

    /// The servers' callback, on a thread of the library.
    Task<bool> edit(std::string path) {
        const auto edit = std::make_shared<Edit>(Edit{.path = path});
        auto ask = [this, edit]() -> Task<bool> {
            auto asking = Platform::withCheckedContinuation<bool>("edit", [&](auto answer) {
                loop.post([this, edit, answer] { open(edit, answer); });
            });
            co_return co_await asking;
        };
        auto withdraw = [this, edit]() noexcept { loop.post([this, edit] { close(edit); }); };
        auto work = Platform::withTaskCancellationHandler(ask, withdraw);
        co_return co_await work;
    }

private:
    void open(const std::shared_ptr<Edit>& edit, Platform::CheckedContinuation<bool> answer) {
        if (edit->isWithdrawn) return answer.resume(false); // the tool has gone already
        edit->answer = answer;
        std::cout << "opened " << edit->path << std::endl;
        loop.post([this, edit] { decide(edit); }); // the user, who takes longer
    }

    void decide(const std::shared_ptr<Edit>& edit) {
        if (!edit->answer) return;
        const bool accepts = !texts_.empty();
        if (accepts) {
            std::ofstream(edit->path) << texts_.front() << '\n';
            texts_.pop_front();
        }
        std::exchange(edit->answer, std::nullopt)->resume(accepts);
    }

    void close(const std::shared_ptr<Edit>& edit) {
        edit->isWithdrawn = true;
        if (edit->answer) std::exchange(edit->answer, std::nullopt)->resume(false);
    }

    std::deque<std::string> texts_;
};

/// Runs the command off the loop's thread; tells its status when it has ended.
static Task<> run(std::string script, std::map<std::string, std::string> environment,
                  std::function<void(int)> ended) {
    const Platform::Cmd command{.path = "/bin/sh",
                                .arguments = {"-c", script},
                                .environment = std::move(environment),
                                .workingDirectoryPath = std::nullopt,
                                .expectedExitStatus = {0},
                                .mergeOutputIntoError = false,
                                .standardInput = nullptr,
                                .standardOutput = nullptr,
                                .standardError = nullptr};
    int status = EXIT_SUCCESS;
    try {
        auto running = command.run({.inheritsStreams = true});
        co_await running;
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        status = EXIT_FAILURE;
    }
    ended(status);
}

int main() {
    const auto arguments = Platform::ProcessInfo::arguments();
    if (arguments.size() < 2) {
        std::cerr << "usage: event-loop-host COMMAND [TEXT]..." << std::endl;
        return EXIT_FAILURE;
    }
    // Lives as long as the callback, which may outlive the server.
    const auto application = std::make_shared<Application>(
        std::vector<std::string>(arguments.begin() + 2, arguments.end()));
    int status = EXIT_FAILURE;
    {
        Platform::Editor::Server server(
            [application](std::string path) { return application->edit(std::move(path)); });
        auto environment = Platform::ProcessInfo::environment();
        for (auto& [name, value] : server.environment()) environment[name] = value;
        const auto tool = Platform::detached([&, environment] {
            return run(arguments[1], environment, [&status, application](int result) {
                application->loop.post([&status, application, result] {
                    status = result;
                    application->loop.end();
                });
            });
        });
        application->loop.run();
    }
    return status;
}
