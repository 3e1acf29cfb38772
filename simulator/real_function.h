// The function that an interposed one stands before: the next of that name in load order, which may
// be a sanitizer's or libc's. Thread-safe.
#pragma once

#include <dlfcn.h>
#include <stdio.h>
#include <unistd.h>

template <typename Function>
Function real_function(const char* name) {
    void* const address = dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        fprintf(stderr, "gadgetfs-sim: no %s in this process\n", name);
        _exit(127);
    }
    return reinterpret_cast<Function>(address);
}
