// The injector's calls on stdio streams, sockets and the shell. Standard error and files are told
// apart.
#include <netinet/in.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/socket.h>

#include "tests/faults/fault_injection.h"

namespace {

FaultCall printing(FILE* stream) {
    return stream == stderr ? kPrint : kWriteFile;
}

// Port 6000 is the bridge's.
FaultCall receiving(int fd) {
    static const auto name = real_function<int (*)(int, sockaddr*, socklen_t*)>("getsockname");
    sockaddr_in local{};
    socklen_t length = sizeof local;
    name(fd, reinterpret_cast<sockaddr*>(&local), &length);
    return ntohs(local.sin_port) == 6000 ? kReceiveFromBridge : kReceiveFromApp;
}

using Receive = ssize_t (*)(int, void*, std::size_t, int, sockaddr*, socklen_t*);
using Send = ssize_t (*)(int, const void*, std::size_t, int, const sockaddr*, socklen_t);

[[gnu::format(printf, 2, 0)]] int print(FILE* stream, const char* format, va_list arguments) {
    static const auto next = real_function<int (*)(FILE*, const char*, va_list)>("vfprintf");
    return injected_call(printing(stream), -1, [&] { return next(stream, format, arguments); });
}

}  // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    static const auto next = real_function<FILE* (*)(const char*, const char*)>("fopen");
    return injected_call<FILE*>(kFopen, nullptr, [=] { return next(path, mode); });
}

// The same, as the library that reads the focus file calls it.
FILE* fopen64(const char* path, const char* mode) {
    static const auto next = real_function<FILE* (*)(const char*, const char*)>("fopen64");
    return injected_call<FILE*>(kFopen, nullptr, [=] { return next(path, mode); });
}

std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* stream) {
    static const auto next =
        real_function<std::size_t (*)(void*, std::size_t, std::size_t, FILE*)>("fread");
    return injected_call<std::size_t>(kFread, 0, [=] { return next(buffer, size, count, stream); });
}

// How the library reads the focus file.
char* fgets(char* buffer, int size, FILE* stream) {
    static const auto next = real_function<char* (*)(char*, int, FILE*)>("fgets");
    return injected_call<char*>(kReadLine, nullptr, [=] { return next(buffer, size, stream); });
}

std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count, FILE* stream) {
    static const auto next =
        real_function<std::size_t (*)(const void*, std::size_t, std::size_t, FILE*)>("fwrite");
    return injected_call<std::size_t>(printing(stream), 0,
                                      [=] { return next(bytes, size, count, stream); });
}

int fputs(const char* text, FILE* stream) {
    static const auto next = real_function<int (*)(const char*, FILE*)>("fputs");
    return injected_call(printing(stream), EOF, [=] { return next(text, stream); });
}

[[gnu::format(printf, 2, 3)]] int fprintf(FILE* stream, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = print(stream, format, arguments);
    va_end(arguments);
    return count;
}

// What a fortified build calls.
[[gnu::format(printf, 3, 4)]] int __fprintf_chk(FILE* stream, int flag, const char* format, ...);
int __fprintf_chk(FILE* stream, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = print(stream, format, arguments);
    va_end(arguments);
    return count;
}

// What a stream that cannot be closed still held is lost.
int fclose(FILE* stream) {
    static const auto next = real_function<int (*)(FILE*)>("fclose");
    return injected_release(
        kFclose, [=] { return next(stream); }, [=] { __fpurge(stream); });
}

int system(const char* command) {
    static const auto next = real_function<int (*)(const char*)>("system");
    return injected_call(kSystem, -1, [=] { return next(command); });
}

int socket(int domain, int type, int protocol) noexcept {
    static const auto next = real_function<int (*)(int, int, int)>("socket");
    return injected_call(kSocket, -1, [=] { return next(domain, type, protocol); });
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    static const auto next = real_function<int (*)(int, const sockaddr*, socklen_t)>("bind");
    return injected_call(kBind, -1, [=] { return next(fd, address, length); });
}

int setsockopt(int fd, int level, int option, const void* value, socklen_t length) noexcept {
    static const auto next =
        real_function<int (*)(int, int, int, const void*, socklen_t)>("setsockopt");
    return injected_call(kSocketOption, -1, [=] { return next(fd, level, option, value, length); });
}

ssize_t recvfrom(int fd, void* buffer, std::size_t size, int flags, sockaddr* address,
                 socklen_t* length) {
    static const auto next = real_function<Receive>("recvfrom");
    return injected_transfer<ssize_t>(receiving(fd), size, [=](std::size_t limit) {
        return next(fd, buffer, limit, flags, address, length);
    });
}

ssize_t sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* address,
               socklen_t length) {
    static const auto next = real_function<Send>("sendto");
    return injected_transfer<ssize_t>(kSendTo, size, [=](std::size_t limit) {
        return next(fd, bytes, limit, flags, address, length);
    });
}

}  // extern "C"
