#include <Platform/Platform.h>

#include "Comparison.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace Bench {

namespace {

using namespace Platform;

constexpr std::size_t whole = std::size_t{1} << 30;
constexpr std::size_t chunkSize = 65536; // as from a pipe

/// Lines of text as a log has them.
const std::string& chunk() {
    static const std::string text = [] {
        std::mt19937 random(1);
        std::string lines;
        while (lines.size() < chunkSize) {
            lines.append(random() % 80, 'x') += '\n';
        }
        lines.resize(chunkSize);
        return lines;
    }();
    return text;
}

template <class Scan>
std::size_t scanWhole(Scan scan) {
    ByteScanner scanner;
    std::size_t lines = 0;
    for (std::size_t done = 0; done < whole; done += chunkSize) {
        scanner.append(chunk());
        while (scan(scanner)) ++lines;
        scanner.trim();
    }
    return lines;
}

/// The loop that the others are compared with: it collects the chunks too; `use` gets each line.
template <class Use>
std::size_t findWhole(Use use) {
    std::size_t lines = 0;
    std::vector<char> buffer(2 * chunkSize);
    std::size_t left = 0; // of the chunk before
    for (std::size_t done = 0; done < whole; done += chunkSize) {
        std::memcpy(buffer.data() + left, chunk().data(), chunkSize);
        const char* at = buffer.data();
        const char* const end = at + left + chunkSize;
        while (const auto* const found = static_cast<const char*>(
                   std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) {
            use(at, static_cast<std::size_t>(found - at));
            at = found + 1;
            ++lines;
        }
        left = static_cast<std::size_t>(end - at);
        std::memmove(buffer.data(), at, left);
    }
    return lines;
}

void splitLines(benchmark::State& state) {
    const auto ours = [] {
        benchmark::DoNotOptimize(scanWhole(
            [](ByteScanner& scanner) { return scanner.scanToEndOfLine(true).has_value(); }));
    };
    const auto bare = [] {
        benchmark::DoNotOptimize(findWhole([](const char* line, std::size_t size) {
            void* const piece = std::malloc(size);
            std::memcpy(piece, line, size);
            benchmark::DoNotOptimize(piece);
            std::free(piece);
        }));
    };
    compareTimes(state, 1, wholly(ours), wholly(bare));
    aimAtRatio(state, 1 / 0.95);
}

void viewLines(benchmark::State& state) {
    const auto ours = [] {
        benchmark::DoNotOptimize(scanWhole([](ByteScanner& scanner) {
            const auto line = scanner.viewToEndOfLine(true);
            benchmark::DoNotOptimize(line);
            return line.has_value();
        }));
    };
    const auto bare = [] {
        benchmark::DoNotOptimize(findWhole([](const char* line, std::size_t size) {
            benchmark::DoNotOptimize(line);
            benchmark::DoNotOptimize(size);
        }));
    };
    compareTimes(state, 1, wholly(ours), wholly(bare));
    aimAtRatio(state, 1 / 0.9);
}

const bool registered = [] {
    benchmark::RegisterBenchmark("split 1 GiB into lines", splitLines)->UseManualTime();
    benchmark::RegisterBenchmark("find the lines of 1 GiB, no copies", viewLines)->UseManualTime();
    return true;
}();

} // namespace

} // namespace Bench
