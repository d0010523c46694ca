#pragma once

#include <Platform/base/Export.h>

#include <string>

namespace Platform {

/// The current user's directory for temporary files: an absolute path without a trailing slash
/// ("/" stays), whether or not it exists.
///
/// `TMPDIR` first; then macOS: the system's own directory for the user, Linux: `XDG_RUNTIME_DIR`;
/// else /tmp. A variable that is empty or not an absolute path does not count. Callable from any
/// thread, as `getenv` is.
PLATFORM_EXPORT std::string temporaryDirectory();

/// Makes a directory that nobody else can put things into, or accepts the one that is there.
/// Returns `path` without trailing slashes.
///
/// Missing directories on the way are made with the usual mode (0777 less the umask), the last one
/// with 0700. Whether just made or found, the last one is accepted only if it is a real directory,
/// owned by the effective user and writable neither by group nor by others: in a shared directory
/// anybody can plant one. What lies above it is the caller's choice and not examined.
///
/// Callable from any thread and process at the same time. Throws `Errno`, `what()` naming the path:
/// `EACCES` for somebody else's or a writable directory, with owner and mode; `ENOTDIR` for a
/// symbolic link or anything else that is no directory; else the number of the failing call.
PLATFORM_EXPORT std::string makePrivateDirectory(const std::string& path);

/// A fresh path for a named pipe: a new UUID in the private directory
/// "app.morvel.pkg.platform.fifo" of the temporary directory, which is made if need be. Makes
/// nothing at the path itself. Throws as `makePrivateDirectory` and `makeUUID` do.
PLATFORM_EXPORT std::string makeTemporaryPipePath();

} // namespace Platform
