#include <Platform/command/detail/PrefixSuffixSaver.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace Platform::detail {

void prefixSuffixSaver::append(std::span<const std::byte> bytes) {
    const auto first = bytes.first(std::min(N - prefix.size(), bytes.size()));
    prefix.append(first);
    bytes = bytes.subspan(first.size());
    if (bytes.empty()) return;
    const std::size_t kept = std::min(N, bytes.size());         // of these
    const std::size_t stay = std::min(N - kept, suffix.size()); // of those before
    const std::size_t dropped = suffix.size() - stay;
    suffix.reserve(stay + kept);
    std::memmove(suffix.data(), suffix.data() + dropped, stay);
    suffix.truncate(stay);
    suffix.append(bytes.last(kept));
    skipped += dropped + (bytes.size() - kept);
}

Data prefixSuffixSaver::text() const {
    Data text = prefix;
    if (skipped > 0) text.append("\n... omitting " + std::to_string(skipped) + " bytes ...\n");
    text.append(suffix);
    return text;
}

} // namespace Platform::detail
