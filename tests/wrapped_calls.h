// The calls on gadgetfs files that a program of ours may take over from the C library by the
// linker's --wrap: __wrap_X is what src/ calls then, __real_X the library's own.
#pragma once

#include <dirent.h>
#include <poll.h>
#include <sys/types.h>

#include <cstddef>

extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
ssize_t __real_read(int fd, void* buffer, std::size_t size);
ssize_t __real_write(int fd, const void* bytes, std::size_t length);
int __real_fcntl(int fd, int operation, ...);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_poll(pollfd* files, nfds_t count, int timeout);
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
int __real_closedir(DIR* directory);

int __wrap_open(const char* path, int flags, ...);
int __wrap_close(int fd);
ssize_t __wrap_read(int fd, void* buffer, std::size_t size);
ssize_t __wrap_write(int fd, const void* bytes, std::size_t length);
int __wrap_fcntl(int fd, int operation, ...);
int __wrap_ioctl(int fd, unsigned long request, ...);
int __wrap_poll(pollfd* files, nfds_t count, int timeout);
DIR* __wrap_opendir(const char* path);
dirent* __wrap_readdir(DIR* directory);
int __wrap_closedir(DIR* directory);
}
