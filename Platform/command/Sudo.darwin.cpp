#include <Platform/command/Sudo.h>

#include <cstdio>

#include <Security/Authorization.h>
#include <dlfcn.h>

namespace Platform::Sudo {

namespace {

/// Deprecated by the system, and so in no header that lasts.
using Execute = OSStatus(AuthorizationRef, const char* path, AuthorizationFlags, char* const* list,
                         std::FILE** pipe);

template <class Function>
Function* lookUp(void* library, const char* name) noexcept {
    return library ? reinterpret_cast<Function*>(::dlsym(library, name)) : nullptr;
}

/// The framework, loaded when it is needed: only this one call has use for it.
struct Services {
    void* const library =
        ::dlopen("/System/Library/Frameworks/Security.framework/Security", RTLD_NOW);
    decltype(AuthorizationCreate)* const create =
        lookUp<decltype(AuthorizationCreate)>(library, "AuthorizationCreate");
    decltype(AuthorizationCopyRights)* const copyRights =
        lookUp<decltype(AuthorizationCopyRights)>(library, "AuthorizationCopyRights");
    decltype(AuthorizationFree)* const free =
        lookUp<decltype(AuthorizationFree)>(library, "AuthorizationFree");
};

bool obtainRight(const Services& services, AuthorizationRef reference) noexcept {
    AuthorizationItem item{"system.privilege.admin", 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    return services.copyRights(reference, &rights, nullptr,
                               kAuthorizationFlagInteractionAllowed |
                                   kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize,
                               nullptr) == errAuthorizationSuccess;
}

bool execute(AuthorizationRef reference, const char* path, char* const* list) noexcept {
    auto* const function =
        lookUp<Execute>(::dlopen(nullptr, RTLD_NOW), "AuthorizationExecuteWithPrivileges");
    return function && function(reference, path, kAuthorizationFlagDefaults, list, nullptr) ==
                           errAuthorizationSuccess;
}

} // namespace

bool run(const std::string& path, const std::vector<std::string>& arguments) noexcept try {
    static const Services services;
    if (!services.create || !services.copyRights || !services.free) return false;
    // What is cut at a zero byte would be another program, or another argument.
    if (path.find('\0') != path.npos) return false;
    for (const std::string& argument : arguments) {
        if (argument.find('\0') != argument.npos) return false;
    }
    std::vector<std::string> copies = arguments;
    std::vector<char*> list;
    list.reserve(copies.size() + 1);
    for (std::string& argument : copies) list.push_back(argument.data());
    list.push_back(nullptr);
    AuthorizationRef reference = nullptr;
    if (services.create(nullptr, nullptr, kAuthorizationFlagDefaults, &reference) !=
        errAuthorizationSuccess) {
        return false;
    }
    const bool isStarted =
        obtainRight(services, reference) && execute(reference, path.c_str(), list.data());
    services.free(reference, kAuthorizationFlagDestroyRights);
    return isStarted;
} catch (...) {
    return false;
}

} // namespace Platform::Sudo
