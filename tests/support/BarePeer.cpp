#include <support/BarePeer.h>

#include <Platform/transport/detail/LocalSocket.h>
#include <Platform/transport/detail/Presence.h>

namespace Platform::Testing {

BarePeer::BarePeer(std::string path, std::string steps, std::string message)
    : path_(std::move(path)), steps_(std::move(steps)), message_(std::move(message)) {
    struct sigaction interrupts{}; // without SA_RESTART: a call that blocks fails
    interrupts.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &interrupts, nullptr);
    thread_ = std::thread([this] { run(); });
}

void BarePeer::run() {
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
    for (const char direction : steps_) {
        if (!(direction == '@' ? waitForTurn() : step(direction))) break;
    }
    if (connection_ >= 0) ::close(connection_);
    ended_ = true;
}

bool BarePeer::waitForTurn() {
    const detail::LocalAddress address(detail::presencePath(path_));
    connection_ = detail::makeLocalSocket().release();
    char said = 0;
    return ::connect(connection_, address.get(), address.size()) == 0 &&
           ::read(connection_, &said, 1) == 1 && said == detail::turn;
}

bool BarePeer::step(char direction) {
    const int mode = direction == '<' ? O_WRONLY : O_RDONLY;
    const int pipe = ::open(path_.c_str(), mode | O_CLOEXEC);
    if (pipe < 0) return false;
    ssize_t count = 0;
    if (mode == O_WRONLY) {
        count = ::write(pipe, message_.data(), message_.size());
        if (connection_ >= 0) ::send(connection_, &detail::whole, 1, MSG_NOSIGNAL);
    } else {
        std::string text;
        std::array<char, 4096> chunk;
        while ((count = ::read(pipe, chunk.data(), chunk.size())) > 0) {
            text.append(chunk.data(), static_cast<std::size_t>(count));
        }
        if (count == 0) received_.push_back(std::move(text));
    }
    ::close(pipe);
    return count >= 0;
}

std::vector<std::string> BarePeer::finish() {
    if (thread_.joinable()) thread_.join();
    return received_;
}

std::vector<std::string> BarePeer::release() {
    while (thread_.joinable() && !ended_) {
        ::pthread_kill(thread_.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    return finish();
}

} // namespace Platform::Testing
