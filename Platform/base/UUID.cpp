#include <Platform/base/UUID.h>

#include <Platform/base/detail/SystemCall.h>

#include <array>
#include <cstddef>

#include <sys/random.h>
#include <unistd.h>

namespace Platform {

std::string makeUUID() {
    std::array<unsigned char, 16> bytes;
    detail::systemCall(detail::SystemCall::getentropy,
                       [&] { return ::getentropy(bytes.data(), bytes.size()); });
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80); // the usual variant

    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) {
            text += '-';
        }
        text += digits[bytes[index] >> 4];
        text += digits[bytes[index] & 0x0F];
    }
    return text;
}

} // namespace Platform
