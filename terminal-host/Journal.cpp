#include <terminal-host/Journal.h>

#include <Platform/base/Text.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <span>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace TerminalHost {

namespace {

std::string quoted(std::string_view bytes) {
    std::string result = "\"";
    for (const char byte : Platform::decodeUTF8(bytes)) {
        if (byte == '"' || byte == '\\') {
            result += {'\\', byte};
        } else if (static_cast<unsigned char>(byte) < ' ') {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(byte));
            result += escape.data();
        } else {
            result += byte;
        }
    }
    return result + '"';
}

std::string now() {
    using namespace std::chrono;
    const auto time = floor<milliseconds>(system_clock::now());
    const std::time_t seconds = system_clock::to_time_t(floor<std::chrono::seconds>(time));
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + size, text.size() - size, ".%03dZ",
                  static_cast<int>(time.time_since_epoch().count() % 1000));
    return text.data();
}

} // namespace

Journal::Journal(bool isVerbose, const std::optional<std::string>& path) : isVerbose_(isVerbose) {
    if (!path) return;
    file_ = Platform::FileDescriptor(
        ::open(path->c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    if (!file_) throw std::system_error(errno, std::generic_category(), *path);
}

template <class Fields>
void Journal::write(Fields fields) const noexcept {
    if (!file_) return;
    try {
        const std::string line = "{\"time\":\"" + now() + "\"," + fields() + "}\n";
        file_.write(std::as_bytes(std::span(line)));
    } catch (const std::exception& error) {
        if (!hasFailed_.exchange(true)) complain(error.what());
    }
}

void Journal::began(const std::string& program, int process) const noexcept {
    write([&] {
        return "\"event\":\"start\",\"program\":" + quoted(program) +
               ",\"process\":" + std::to_string(process);
    });
}

void Journal::answered(std::string_view what, const std::string& subject, std::string_view outcome,
                       double seconds) const noexcept {
    if (isVerbose_) complain({outcome, ": ", what, " ", subject});
    write([&] {
        std::array<char, 32> duration{};
        std::snprintf(duration.data(), duration.size(), "%.3f", seconds);
        return "\"event\":" + quoted(what) + (what == "edit" ? ",\"path\":" : ",\"text\":") +
               quoted(subject) + ",\"answer\":" + quoted(outcome) +
               ",\"seconds\":" + duration.data();
    });
}

void Journal::ended(int status, std::optional<int> signal) const noexcept {
    write([&] {
        return "\"event\":\"end\"," + (signal ? "\"signal\":" + std::to_string(*signal)
                                              : "\"status\":" + std::to_string(status));
    });
}

void Journal::complain(std::initializer_list<std::string_view> text) noexcept try {
    std::string line;
    for (const std::string_view piece : text) line += piece;
    line = "terminal-host: " + Platform::singleLine(line) + "\n";
    // Who has closed standard error does not want to know.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
} catch (const std::exception&) {
    // Nothing else could be told either.
}

} // namespace TerminalHost
