#include "tests/board/board_controls.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error(command);
    }
}

void write_text(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

bool is_loaded(const std::string& module) {
    return std::filesystem::exists("/sys/module/" + module + "/refcnt");
}

void unload(const std::string& module) {
    if (is_loaded(module)) {
        run("rmmod " + module);
    }
}

void set_wall_clock(const timeval& time) {
    if (settimeofday(&time, nullptr) != 0) {
        throw std::runtime_error("settimeofday");
    }
}

}  // namespace

void unload_controller() {
    unload("dummy_hcd");
}

void load_controller(UsbSpeed speed) {
    unload_controller();
    run(std::string("modprobe dummy_hcd is_super_speed=0 is_high_speed=") +
        (speed == UsbSpeed::kHigh ? "1" : "0"));
}

void unload_gadgetfs() {
    while (std::system("umount /dev/gadgetfs 2>/dev/null") == 0) {
    }
    std::filesystem::remove_all("/dev/gadget");
    std::filesystem::remove_all("/dev/gadgetfs");
    unload("gadgetfs");
}

// By its file: whatever is asked for the module then fails, by the receiver or by the kernel itself
// when it is to mount the file system.
void hide_gadgetfs_module(bool hidden) {
    utsname system{};
    uname(&system);
    const std::string file = std::string("/lib/modules/") + system.release +
                             "/kernel/drivers/usb/gadget/legacy/gadgetfs.ko";
    std::filesystem::rename(hidden ? file : file + ".hidden", hidden ? file + ".hidden" : file);
}

void switch_port(bool on) {
    write_text("/sys/bus/usb/devices/usb1/1-0:1.0/usb1-port1/disable", on ? "0" : "1");
}

void configure_devices(bool configure) {
    write_text("/sys/bus/usb/devices/usb1/authorized_default", configure ? "1" : "0");
}

int select_configuration(int value) {
    const int fd = open("/sys/bus/usb/devices/1-1/bConfigurationValue", O_WRONLY | O_CLOEXEC);
    const std::string text = std::to_string(value);
    const int error = fd < 0 || write(fd, text.data(), text.size()) < 0 ? errno : 0;
    close(fd);
    return error;
}

void leave_out_interface_strings(bool leave_out) {
    write_text("/sys/module/usbcore/parameters/quirks", leave_out ? "18d1:2d01:d" : "\n");
}

void set_clock_back(std::chrono::seconds by) {
    timeval now{};
    gettimeofday(&now, nullptr);
    now.tv_sec -= by.count();
    set_wall_clock(now);
}

void set_clock(ClockHalf half) {
    constexpr std::int64_t kRounds = 417;  // to October 2026
    constexpr std::int64_t kTenDays = std::int64_t{10} * 24 * 3600;
    const std::int64_t seconds = (kRounds << 32) / 1000;
    set_wall_clock(
        {.tv_sec = half == ClockHalf::kPositive ? seconds + kTenDays : seconds - kTenDays,
         .tv_usec = 0});
}

int module_users(const std::string& name) {
    return is_loaded(name) ? static_cast<int>(kernel_number("/sys/module/" + name + "/refcnt"))
                           : -1;
}

long kernel_number(const std::string& path) {
    std::ifstream file(path);
    long number = 0;
    if (!(file >> number)) {
        throw std::runtime_error("cannot read " + path);
    }
    return number;
}
