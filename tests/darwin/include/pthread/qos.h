#pragma once

typedef enum {
    QOS_CLASS_UNSPECIFIED = 0,
    QOS_CLASS_BACKGROUND = 0x09,
    QOS_CLASS_UTILITY = 0x11,
    QOS_CLASS_DEFAULT = 0x15,
    QOS_CLASS_USER_INITIATED = 0x19,
} qos_class_t;

#ifdef __cplusplus
extern "C"
#endif
    int
    pthread_set_qos_class_self_np(qos_class_t wanted, int relative);
