#include <Platform/system/Passwd.h>

#include <Platform/base/Text.h>

#include <string_view>

#include <pwd.h>

namespace Platform {
namespace {

std::optional<std::string> decoded(const char* text) {
    if (!text) return std::nullopt;
    return decodeUTF8(std::string_view(text));
}

} // namespace

Passwd::Passwd(const ::passwd& record)
    : pwDir_(decoded(record.pw_dir)), pwShell_(decoded(record.pw_shell)) {}

} // namespace Platform
