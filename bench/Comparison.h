#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

/// Every benchmark here does the same work twice: through the library, and bare, with the least
/// code that can do it. A time alone says nothing on a machine that others use too, the ratio does.
namespace Bench {

using Seconds = std::chrono::duration<double>;

/// One round of one side: does its work, and returns the time of the part that counts.
using Round = std::function<Seconds()>;

template <class Work>
Seconds timed(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - start;
}

/// A round that is timed as a whole.
template <class Work>
Round wholly(Work work) {
    return [work = std::move(work)] { return timed(work); };
}

/// Runs rounds of both sides, alternating, for as long as the benchmark lasts; reports the medians,
/// for one of the `operations` that a round is made of. An exception ends the benchmark with an
/// error.
void compareTimes(benchmark::State& state, std::int64_t operations, const Round& ours,
                  const Round& bare);

/// Reports amounts of memory.
void noteBytes(benchmark::State& state, double ours, double bare);

/// What the comparison is meant to reach: a ratio, or a time of our side.
void aimAtRatio(benchmark::State& state, double most);
void aimAt(benchmark::State& state, Seconds most);

/// Google Benchmark's reporter of the table: a line for each comparison, as soon as it is known.
class Table final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
};

} // namespace Bench
