#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Task.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace Platform {

/// The environment that a user's login shell sets up, which a program started from the desktop does
/// not have: additions to the search path above all.
///
/// A plain value; const operations are callable from any thread.
class PLATFORM_EXPORT Shell {
public:
    using Environment = std::map<std::string, std::string>;

    Shell(std::string path, std::optional<Environment> environment) noexcept;

    /// Runs the shell at `path` as a login shell that prints its environment: interactive, else
    /// not interactive, else as no login shell; the first attempt that ends with status 0 counts.
    /// Never fails: when none does, the environment is absent.
    ///
    /// The shell starts from this process's environment, as it is then, in a session of its own: it
    /// can neither use nor stop this process's terminal, and what its start-up files leave running
    /// is not waited for. Suspends for as long as the shell takes, which may be for ever when a
    /// start-up file waits for something; with a `timeLimit` for all attempts together, the shell
    /// and what it started are ended then. Cancelling the task ends the attempt that is under way,
    /// and those that remain.
    ///
    /// A variable that is empty is not found, names and values are without blanks around them, and
    /// of a value with several lines the first counts. Throws std::bad_alloc only.
    static Task<Shell> load(std::string path,
                            std::optional<std::chrono::milliseconds> timeLimit = std::nullopt);

    /// Makes the login shell of the effective user, loaded as above, the default shell; changes
    /// nothing when the user has none. Meant to be called once, early.
    static Task<> loadDefault(std::optional<std::chrono::milliseconds> timeLimit = std::nullopt);

    /// What `loadDefault` has loaded, or `setDefaultShell` has set; absent before. From any thread.
    static std::optional<Shell> defaultShell();
    static void setDefaultShell(std::optional<Shell> shell);

    /// The shell that was run.
    const std::string& path() const noexcept { return path_; }

    /// The variables that it printed; absent when it could not be run.
    const std::optional<Environment>& environment() const noexcept { return environment_; }

    /// The search path among them (see `which`). Nothing stands in for it when it is missing.
    std::optional<std::string> PATH() const;

private:
    std::string path_;
    std::optional<Environment> environment_;
};

} // namespace Platform
