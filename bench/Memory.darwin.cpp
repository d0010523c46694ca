#include "Memory.h"

#include <cerrno>
#include <system_error>

#include <libproc.h>
#include <malloc/malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Bench {

double peakMemory(pid_t process) {
    rusage_info_v4 usage;
    auto* const target = reinterpret_cast<rusage_info_t*>(&usage);
    if (proc_pid_rusage(process, RUSAGE_INFO_V4, target) != 0) {
        throw std::system_error(errno, std::system_category(), "proc_pid_rusage");
    }
    return static_cast<double>(usage.ri_lifetime_max_phys_footprint);
}

double peakMemoryDuring(const std::function<void()>& work) {
    const double before = peakMemory(getpid());
    work();
    return peakMemory(getpid()) - before;
}

double heapInUse() {
    return static_cast<double>(mstats().bytes_used);
}

} // namespace Bench
