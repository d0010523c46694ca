#include <Platform/transport/detail/Presence.h>

#include <Platform/base/Errno.h>
#include <Platform/base/Log.h>
#include <Platform/base/TemporaryDirectory.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/transport/detail/LocalSocket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform::detail {

namespace {

constexpr std::string_view directoryName = "mv.presence";
constexpr char newMark = '.'; // before the name of a socket that does not listen yet
/// How long a client that has the turn may take to say that its question is complete, or to hang up
/// after it has closed the pipe.
constexpr std::chrono::seconds commitTimeout(1);
constexpr std::chrono::milliseconds retryTime(100);

/// Up to the last slash.
std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/') == path.npos ? 0 : path.rfind('/'));
}

/// The folder beside the one that the pipe is in.
std::string folderOf(const std::string& pipePath) {
    return parentOf(parentOf(pipePath)).append("/").append(directoryName);
}

void noteAbsence(const Errno& error) {
    static std::atomic<bool> isNoted = false;
    if (!isNoted.exchange(true)) Logger("presence").error(error.what());
}

/// "0f8f…" as "0F8F…-…", where the pipes' names come from; empty when it is none.
std::string pipeName(const std::string& name) {
    constexpr std::size_t dashes[] = {8, 13, 18, 23};
    if (name.size() != 32) return {};
    std::string result = name;
    for (const std::size_t at : dashes) result.insert(at, 1, '-');
    return result;
}

} // namespace

std::string presencePath(const std::string& pipePath) {
    std::string name = pipePath.substr(pipePath.rfind('/') + 1);
    std::erase(name, '-');
    return folderOf(pipePath) + "/" + name;
}

/// A client's connection.
class Presence::Visitor final : public Watch {
public:
    Visitor(std::weak_ptr<Presence> host, FileDescriptor connection)
        : Watch(WatchEvent::readable), host_(std::move(host)), connection_(std::move(connection)) {
        setSubject(connection_.get());
    }
    Visitor(const Visitor&) = delete;
    Visitor& operator=(const Visitor&) = delete;
    ~Visitor() { cancel(); }

    bool hasGone() const { return hasLeft_ || hasHungUp(connection_); }
    /// Or has gone.
    bool hasSent() const { return hasSent_ || hasGone(); }
    bool hasConfirmed() const noexcept { return hasSent_; }
    void leave() noexcept { hasLeft_ = true; }

    /// Takes in what the client says. False: it has gone, or is none of ours.
    bool hear() noexcept {
        char said = 0;
        const auto count = trySystemCall(SystemCall::receive, 1, [&](std::size_t) {
            // NOLINTNEXTLINE(clang-analyzer-unix.BlockInCriticalSection): it does not block
            return ::recv(connection_.get(), &said, 1, MSG_DONTWAIT);
        });
        if (count == 1 && said == whole && !hasSent_) return hasSent_ = true;
        hasLeft_ = !(count == -1 && errno == EAGAIN);
        return !hasLeft_;
    }

    /// False: it has gone.
    bool tell(char what) const noexcept {
        return trySystemCall(SystemCall::send, 1, [&](std::size_t) {
                   return ::send(connection_.get(), &what, 1, MSG_NOSIGNAL);
               }) == 1;
    }

private:
    void ready() noexcept override {
        const auto host = host_.lock();
        if (host) host->changed(*this);
    }

    const std::weak_ptr<Presence> host_;
    const FileDescriptor connection_;
    bool hasSent_ = false; ///< With the host's lock, as is the next.
    bool hasLeft_ = false;
};

std::shared_ptr<Presence> Presence::create(const std::string& pipePath) {
    const std::string path = presencePath(pipePath);
    try {
        makePrivateDirectory(folderOf(pipePath));
        removeDeadHosts(pipePath);
        // Whoever finds the socket at its path finds it listening: one that refuses is dead.
        const std::size_t name = path.rfind('/') + 1;
        const std::string early = path.substr(0, name) + newMark + path.substr(name);
        FileDescriptor listener = makeLocalSocket();
        {
            const LocalAddress address(early);
            systemCall(SystemCall::bind,
                       [&] { return ::bind(listener.get(), address.get(), address.size()); });
        }
        systemCall(SystemCall::listen, [&] { return ::listen(listener.get(), SOMAXCONN); });
        ::fcntl(listener.get(), F_SETFL, O_NONBLOCK);
        systemCall(SystemCall::rename, [&] { return ::rename(early.c_str(), path.c_str()); });
        auto presence = std::make_shared<Presence>(Token{}, std::move(listener), path);
        presence->arm();
        return presence;
    } catch (const Errno& error) {
        // Where others can put things, they could answer in the host's place.
        if (error.number() == EACCES || error.number() == ENOTDIR) throw;
        noteAbsence(error);
        return nullptr;
    }
}

Presence::Presence(Token, FileDescriptor listener, std::string path)
    : Watch(WatchEvent::readable), path_(std::move(path)), listener_(std::move(listener)) {
    setSubject(listener_.get());
}

Presence::~Presence() {
    remove();
}

void Presence::onDeparture(Departure departure) {
    std::function<void()> tell;
    {
        const std::lock_guard guard(mutex_);
        std::swap(departure_, departure);
        if (!holder_ || !holder_->hasGone()) return;
        if (departure_.release) departure_.release();
        tell = departure_.tell;
    }
    if (tell) tell();
}

void Presence::giveTurn() {
    const std::lock_guard guard(mutex_);
    givesTurn_ = true;
    offerTurn();
}

void Presence::holdTurns() {
    const std::lock_guard guard(mutex_);
    givesTurn_ = false;
}

bool Presence::hasGone() {
    const std::lock_guard guard(mutex_);
    return holder_ && holder_->hasGone();
}

Task<bool> Presence::isWhole() {
    auto waiting = untilOrTimeout(&Visitor::hasSent);
    co_await waiting;
    const std::lock_guard guard(mutex_);
    co_return holder_ && holder_->hasConfirmed();
}

Task<bool> Presence::goesSoon() {
    auto waiting = untilOrTimeout(&Visitor::hasGone);
    co_await waiting;
    const std::lock_guard guard(mutex_);
    co_return !holder_ || holder_->hasGone();
}

void Presence::confirmAnswer() {
    const std::lock_guard guard(mutex_);
    if (holder_) holder_->tell(whole);
}

Task<> Presence::untilGone() {
    auto waiting = until(&Visitor::hasGone, nullptr);
    co_await waiting;
    std::shared_ptr<Visitor> visitor; // goes without the lock, which it may wait for
    const std::lock_guard guard(mutex_);
    visitor = std::exchange(holder_, nullptr);
}

Task<> Presence::untilOrTimeout(bool (Visitor::*isSo)() const) {
    std::atomic<bool> isOver = false;
    const Alarm limit(commitTimeout, [this, &isOver] {
        isOver = true;
        wake();
    });
    auto waiting = until(isSo, &isOver);
    co_await waiting;
}

/// Suspends until the client that has the turn satisfies `isSo`, nobody has the turn, or `isOver`.
Task<> Presence::until(bool (Visitor::*isSo)() const, const std::atomic<bool>* isOver) {
    const auto self = shared_from_this();
    for (bool waited = true; waited;) {
        waited = false;
        auto change =
            withCheckedContinuation<>("presence", [&](CheckedContinuation<> continuation) {
                const std::lock_guard guard(mutex_);
                waited = holder_ && !isClosed_ && !(holder_.get()->*isSo)() && !(isOver && *isOver);
                if (!waited) return continuation.resume();
                awaited_.emplace(std::move(continuation));
            });
        co_await change;
    }
}

void Presence::wake() noexcept {
    std::optional<CheckedContinuation<>> awaited;
    {
        const std::lock_guard guard(mutex_);
        awaited.swap(awaited_);
    }
    if (awaited) awaited->resume();
}

std::size_t Presence::visitors() {
    const std::lock_guard guard(mutex_);
    return waiting_.size() + (holder_ ? 1 : 0);
}

void Presence::close() noexcept {
    std::deque<std::shared_ptr<Visitor>> waiting;
    std::shared_ptr<Visitor> holder;
    FileDescriptor listener;
    std::optional<CheckedContinuation<>> awaited;
    Alarm retry;
    {
        const std::lock_guard guard(mutex_);
        if (std::exchange(isClosed_, true)) return;
        waiting.swap(waiting_);
        holder = std::exchange(holder_, nullptr);
        listener = std::move(listener_);
        awaited.swap(awaited_);
        retry = std::move(retry_);
    }
    cancel();
    if (awaited) awaited->resume();
}

void Presence::remove() noexcept {
    close();
    trySystemCall(SystemCall::unlink, [&] { return ::unlink(path_.c_str()); });
}

/// Somebody has come.
void Presence::ready() noexcept {
    const std::lock_guard guard(mutex_);
    if (isClosed_) return;
    try {
        acceptVisitors();
        arm();
    } catch (...) { // no descriptor or no memory: those who have come are heard later
        try {
            retry_ = Alarm(retryTime, [weak = weak_from_this()] {
                if (const auto self = weak.lock()) self->ready();
            });
        } catch (...) {
            Logger("presence").error("clients are not heard any more");
        }
    }
}

void Presence::acceptVisitors() {
    for (;;) {
        FileDescriptor connection = acceptLocal(listener_);
        if (!connection && errno == ECONNABORTED) continue;
        if (!connection && errno == EAGAIN) break;
        if (!connection) throwErrno();
        if (!isOwnPeer(connection)) continue;
        waiting_.push_back(std::make_shared<Visitor>(weak_from_this(), std::move(connection)));
    }
    offerTurn();
}

/// With the lock held.
void Presence::offerTurn() {
    while (givesTurn_ && !holder_ && !waiting_.empty()) {
        std::shared_ptr<Visitor> next = std::move(waiting_.front());
        waiting_.pop_front();
        if (!next->tell(turn)) continue;
        next->arm();
        holder_ = std::move(next);
    }
}

void Presence::changed(const Visitor& visitor) noexcept {
    std::function<void()> tell;
    {
        const std::lock_guard guard(mutex_);
        if (holder_.get() != &visitor) return;
        bool isHere = holder_->hear();
        try {
            if (isHere) holder_->arm();
        } catch (const std::exception&) { // not heard of any more: as good as gone
            holder_->leave();
            isHere = false;
        }
        if (!isHere && !awaited_) {
            if (departure_.release) departure_.release();
            tell = departure_.tell;
        }
    }
    wake();
    if (tell) tell();
}

void removeDeadHosts(const std::string& pipePath) noexcept {
    try {
        const std::filesystem::path pipes = parentOf(pipePath);
        for (const auto& entry : std::filesystem::directory_iterator(folderOf(pipePath))) {
            const std::string path = entry.path().string();
            std::string name = entry.path().filename().string();
            if (name.starts_with(newMark)) { // of a host that starts just now, unless it is old
                const auto age = std::filesystem::file_time_type::clock::now() -
                                 std::filesystem::last_write_time(path);
                if (age > std::chrono::minutes(1)) ::unlink(path.c_str());
                continue;
            }
            if (!isAbandoned(path)) continue;
            if (const std::string pipe = pipeName(name); !pipe.empty()) {
                ::unlink((pipes / pipe).c_str());
            }
            ::unlink(path.c_str());
        }
    } catch (const std::exception&) { // the next host tries again
    }
}

} // namespace Platform::detail
