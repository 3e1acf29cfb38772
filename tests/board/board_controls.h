// The virtual board's hardware, as a test's hand reaches it: the USB controller, the port with the
// camera's cable in it, the clock. Each throws where the board refuses.
#pragma once

#include <chrono>
#include <string>

#include "simulator/usb_bus.h"

// The controller's driver, with a device of this speed at most; loaded anew, so that nothing of an
// earlier device is left.
void load_controller(UsbSpeed speed = UsbSpeed::kHigh);
void unload_controller();

// gadgetfs as at power-on: neither mounted nor loaded.
void unload_gadgetfs();
// Whether the module is there to be loaded.
void hide_gadgetfs_module(bool hidden);

// The host's port. Off, it has no power and sees no device.
void switch_port(bool on);

// Whether the host configures a device that it has enumerated. One that does not has read the
// descriptors and strings, and leaves it at that.
void configure_devices(bool configure);

// Has the host select a configuration of the device, or none (0): 0, or the errno.
int select_configuration(int value);

// Whether this host leaves out the strings of the configuration and of its interface. It asks for
// them after SET_CONFIGURATION, and keeps the device to itself until it has them.
void leave_out_interface_strings(bool leave_out);

// The receiver counts the camera's silence on the wall clock, and gives up after five seconds. A
// test that takes its time with an idle link puts the clock back.
void set_clock_back(std::chrono::seconds by);
// The receiver's millisecond clock counts the wall clock's, modulo 2^32: an early or a late half of
// that, which as a signed number is positive or negative. Ten days from the next change.
enum class ClockHalf { kPositive, kNegative };
void set_clock(ClockHalf half);

// The number of a module's users, as lsmod has it; -1 where it is not loaded.
int module_users(const std::string& name);
// The first word of a file of the kernel's, e.g. "/proc/sys/fs/file-nr".
long kernel_number(const std::string& path);
