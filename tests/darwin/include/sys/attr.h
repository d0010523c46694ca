#pragma once

#include <stddef.h>
#include <stdint.h>

#define ATTR_BIT_MAP_COUNT 5
#define ATTR_CMN_NAME 0x00000001u
#define ATTR_CMN_OBJTYPE 0x00000008u
#define ATTR_CMN_ERROR 0x20000000u
#define ATTR_CMN_RETURNED_ATTRS 0x80000000u

typedef uint32_t attrgroup_t;
typedef uint32_t fsobj_type_t;

struct attrlist {
    uint16_t bitmapcount, reserved;
    attrgroup_t commonattr, volattr, dirattr, fileattr, forkattr;
};

typedef struct {
    attrgroup_t commonattr, volattr, dirattr, fileattr, forkattr;
} attribute_set_t;

typedef struct {
    int32_t attr_dataoffset;
    uint32_t attr_length;
} attrreference_t;

#ifdef __cplusplus
extern "C"
#endif
    int
    getattrlistbulk(int directory, void* wanted, void* buffer, size_t size, uint64_t options);
