// The function that an interposed one stands before: the next of that name in load order, which may
// be a sanitizer's or libc's. Thread-safe.
//
// Hidden: the next one counts from the library that asks, so that no two libraries of a process may
// share this function.
#pragma once

#include <dlfcn.h>
#include <stdio.h>
#include <unistd.h>

template <typename Function>
[[gnu::visibility("hidden")]] Function real_function(const char* name) {
    void* const address = dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        fprintf(stderr, "gadgetfs-sim: no %s in this process\n", name);
        _exit(127);
    }
    return reinterpret_cast<Function>(address);
}
