/*
 * Preloaded under a program: counts the mutexes that libcorvane locks, by the place that locks them. LOCK_COUNT names
 * the file that is written at the end: a line for each place, its count and its offset in the library.
 */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { PLACES = 4096 };
static _Atomic uintptr_t places[PLACES];
static _Atomic uint64_t counts[PLACES];
static _Atomic uintptr_t begin, end;

static int Find(struct dl_phdr_info* info, size_t size, void* data) {
    (void)size;
    (void)data;
    if (!info->dlpi_name || !strstr(info->dlpi_name, "libcorvane.so"))
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)* header = &info->dlpi_phdr[i];
        if (header->p_type != PT_LOAD || !(header->p_flags & PF_X))
            continue;
        atomic_store(&end, info->dlpi_addr + header->p_vaddr + header->p_memsz);
        atomic_store(&begin, info->dlpi_addr);
    }
    return 1;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static int (*next)(pthread_mutex_t*);
    if (!next)
        next = (int (*)(pthread_mutex_t*))dlsym(RTLD_NEXT, "pthread_mutex_lock");
    const uintptr_t from = (uintptr_t)__builtin_return_address(0);
    const uintptr_t first = atomic_load(&begin);
    if (first && from >= first && from < atomic_load(&end)) {
        for (uintptr_t at = from % PLACES;; at = (at + 1) % PLACES) {
            uintptr_t empty = 0;
            if (places[at] == from || atomic_compare_exchange_strong(&places[at], &empty, from) || empty == from) {
                atomic_fetch_add(&counts[at], 1);
                break;
            }
        }
    }
    return next(mutex);
}

__attribute__((constructor)) static void Begin(void) {
    dl_iterate_phdr(&Find, NULL);
}

__attribute__((destructor)) static void Write(void) {
    const char* name = getenv("LOCK_COUNT");
    FILE* file = name ? fopen(name, "w") : NULL;
    if (!file)
        return;
    for (int i = 0; i < PLACES; ++i)
        if (places[i])
            fprintf(file, "%llu %#llx\n", (unsigned long long)counts[i], (unsigned long long)(places[i] - begin));
    fclose(file);
}
