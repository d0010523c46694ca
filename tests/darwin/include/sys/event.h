#pragma once
#pragma GCC system_header

/// macOS's <sys/event.h> for Linux, with macOS's numbers and field types. It declares only what
/// Kqueue.cpp implements.

#include <stdint.h>
#include <time.h>

#define EVFILT_READ (-1)
#define EVFILT_WRITE (-2)
#define EVFILT_PROC (-5)
#define EVFILT_SIGNAL (-6) /* refused with EINVAL */
#define EVFILT_TIMER (-7)
#define EVFILT_USER (-10)

#define EV_ADD 0x0001
#define EV_DELETE 0x0002
#define EV_ONESHOT 0x0010
#define EV_CLEAR 0x0020
#define EV_ERROR 0x4000
#define EV_EOF 0x8000

#define NOTE_TRIGGER 0x01000000
#define NOTE_EXIT 0x80000000

struct kevent {
    uintptr_t ident;
    int16_t filter;
    uint16_t flags;
    uint32_t fflags;
    intptr_t data;
    void* udata;
};

#define EV_SET(event, a, b, c, d, e, f)                                                            \
    do {                                                                                           \
        struct kevent* event_to_set = (event);                                                     \
        event_to_set->ident = (a);                                                                 \
        event_to_set->filter = (b);                                                                \
        event_to_set->flags = (c);                                                                 \
        event_to_set->fflags = (d);                                                                \
        event_to_set->data = (e);                                                                  \
        event_to_set->udata = (f);                                                                 \
    } while (0)

#ifdef __cplusplus
extern "C" {
#endif

int kqueue(void);
int kevent(int queue, const struct kevent* changes, int change_count, struct kevent* events,
           int event_count, const struct timespec* timeout);

#ifdef __cplusplus
}
#endif
