/*
 * Preloaded under a test program: sleeps at random around locks, unlocks, waits and wake-ups, so that threads meet in orders
 * that an idle machine never shows. SHAKER_SEED chooses the sequence; the kernel still has its say.
 */

#include <dlfcn.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <time.h>

static _Atomic uint64_t state;

__attribute__((constructor)) static void Seed(void) {
    const char* text = getenv("SHAKER_SEED");
    atomic_store(&state, 0x9E3779B97F4A7C15u * (1 + (text ? strtoull(text, 0, 10) : 0)));
}

/* One time in eight, up to 0.3 ms. */
static void Shake(void) {
    uint64_t x = atomic_fetch_add(&state, 0x9E3779B97F4A7C15u);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
    x ^= x >> 31;
    if ((x & 7) != 0) return;
    const struct timespec span = {0, (long)((x >> 3) % 300000)};
    nanosleep(&span, 0);
}

#define NEXT(type, name) \
    static type next;    \
    if (!next) next = (type)dlsym(RTLD_NEXT, name)

typedef int (*MutexCall)(pthread_mutex_t*);
typedef int (*ConditionCall)(pthread_cond_t*);
typedef int (*WaitCall)(pthread_cond_t*, pthread_mutex_t*);
typedef int (*ClockWaitCall)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*);

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    NEXT(MutexCall, "pthread_mutex_lock");
    Shake();
    return next(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    NEXT(MutexCall, "pthread_mutex_unlock");
    const int result = next(mutex);
    Shake();
    return result;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    NEXT(WaitCall, "pthread_cond_wait");
    Shake();
    return next(condition, mutex);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const struct timespec* until) {
    NEXT(ClockWaitCall, "pthread_cond_clockwait");
    Shake();
    return next(condition, mutex, clock, until);
}

int pthread_cond_broadcast(pthread_cond_t* condition) {
    NEXT(ConditionCall, "pthread_cond_broadcast");
    Shake();
    return next(condition);
}

int pthread_cond_signal(pthread_cond_t* condition) {
    NEXT(ConditionCall, "pthread_cond_signal");
    Shake();
    return next(condition);
}
