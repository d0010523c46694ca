#pragma once

#include <Platform/base/Export.h>
#include <Platform/runtime/Executor.h>

namespace Platform::detail {

/// Where detached tasks run: the shared cooperative pool, unless a test has put its own in place.
PLATFORM_EXPORT Executor& defaultExecutor();

/// For tests: detached tasks go to `executor` from now on; null restores the pool.
void setDefaultExecutor(Executor* executor) noexcept;

} // namespace Platform::detail
