/*
 * Preloaded under a test program: sleeps at random around locks, unlocks, waits and wake-ups, so that threads meet in
 * orders that an idle machine never shows. SHAKER_SEED chooses the sequence; the kernel's scheduling adds to it.
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
    if ((x & 7) != 0)
        return;
    const struct timespec span = {0, (long)((x >> 3) % 300000)};
    nanosleep(&span, 0);
}

/* A function of the same name in front of the real one, shaken before or after it. */
#define SHAKEN(name, parameters, arguments, before, after)     \
    int name parameters {                                      \
        static int(*next) parameters;                          \
        if (!next)                                             \
            next = (int(*) parameters)dlsym(RTLD_NEXT, #name); \
        before;                                                \
        const int result = next arguments;                     \
        after;                                                 \
        return result;                                         \
    }

#define NOTHING (void)0
SHAKEN(pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex), Shake(), NOTHING)
SHAKEN(pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex), NOTHING, Shake())
SHAKEN(pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex), (condition, mutex), Shake(), NOTHING)
SHAKEN(pthread_cond_clockwait,
       (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock, const struct timespec* until),
       (condition, mutex, clock, until), Shake(), NOTHING)
SHAKEN(pthread_cond_broadcast, (pthread_cond_t * condition), (condition), Shake(), NOTHING)
SHAKEN(pthread_cond_signal, (pthread_cond_t * condition), (condition), Shake(), NOTHING)
