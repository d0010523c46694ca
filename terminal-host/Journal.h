#pragma once

#include <Platform/base/FileDescriptor.h>

#include <atomic>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace TerminalHost {

/// Tells what is asked and how it is answered: on standard error, and in a file of JSON lines. Of
/// the command it has the program, and of a prompt the text; never an argument or an answer, which
/// may be secrets. Callable from any thread.
class Journal {
public:
    /// Opens the file to append to it, private to its user where it is made. Throws
    /// std::system_error.
    Journal(bool isVerbose, const std::optional<std::string>& path);

    void began(const std::string& program, int process) const noexcept;
    /// `what` is "edit" or "prompt".
    void answered(std::string_view what, const std::string& subject, std::string_view outcome,
                  double seconds) const noexcept;
    void ended(int status, std::optional<int> signal) const noexcept;

    /// What concerns the user whether or not the rest does.
    static void complain(std::initializer_list<std::string_view> text) noexcept;
    static void complain(std::string_view text) noexcept { complain({text}); }

private:
    /// The command is worth more than its journal: a failure is told, the first time.
    template <class Fields>
    void write(Fields fields) const noexcept;

    const bool isVerbose_;
    Platform::FileDescriptor file_;
    mutable std::atomic<bool> hasFailed_ = false;
};

} // namespace TerminalHost
