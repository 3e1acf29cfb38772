// The system calls that open a link, as a test wants them to go.
//
// Included by one source file of a test that is linked with -Wl,--wrap=socket,--wrap=pthread_create
// so that the calls of the code under test come here. Both hooks are set by the thread that opens
// the link, and unset by it; without one the call goes as always.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>

using ThreadBody = void* (*)(void*);

// Sees each new socket before the code under test does.
inline void (*socket_hook)(int socket) = nullptr;

// Asked before each thread is started: 0, or the error that pthread_create() returns instead.
inline int (*thread_hook)(ThreadBody body) = nullptr;

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, ThreadBody body,
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, ThreadBody body,
                          void* argument);

int __wrap_socket(int domain, int type, int protocol) {
    const int result = __real_socket(domain, type, protocol);
    if (socket_hook) {
        socket_hook(result);
    }
    return result;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, ThreadBody body,
                          void* argument) {
    const int error = thread_hook ? thread_hook(body) : 0;
    return error != 0 ? error : __real_pthread_create(thread, attributes, body, argument);
}

}  // extern "C"

// A hook: a new socket has neither flag by itself, so that code which does not clear them could
// not be told from code which does.
inline void set_unwanted_flags(int socket) {
    const int on = 1;
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    setsockopt(socket, SOL_SOCKET, SO_REUSEPORT, &on, sizeof(on));
}
