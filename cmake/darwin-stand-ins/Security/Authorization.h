/* Stand-in for the system's header, which the cross compiler lacks: only what is used of it. */
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t OSStatus;
typedef uint32_t AuthorizationFlags;
typedef const char* AuthorizationString;
typedef const struct AuthorizationOpaqueRef* AuthorizationRef;

typedef struct {
    AuthorizationString name;
    size_t valueLength;
    void* value;
    uint32_t flags;
} AuthorizationItem;

typedef struct {
    uint32_t count;
    AuthorizationItem* items;
} AuthorizationItemSet;

typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;

enum { errAuthorizationSuccess = 0 };
enum {
    kAuthorizationFlagDefaults = 0,
    kAuthorizationFlagInteractionAllowed = 1 << 0,
    kAuthorizationFlagExtendRights = 1 << 1,
    kAuthorizationFlagDestroyRights = 1 << 3,
    kAuthorizationFlagPreAuthorize = 1 << 4,
};

OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization);
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights);
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);

#ifdef __cplusplus
}
#endif
