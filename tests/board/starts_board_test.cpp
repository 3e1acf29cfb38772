// What a start meets on the board: the file system, the controller, the speed of the bus.

#include <cstdlib>
#include <filesystem>

#include "tests/board/board_support.h"

namespace {

const Bytes kConfigurationAtFullSpeed = {
    9, 2, 32,   0, 1,  2,    250, 0xC0, 1,                       // configuration 2
    9, 4, 0,    0, 2,  0xFF, 0,   0,    250,                     //
    7, 5, 0x86, 2, 64, 0,    0,   7,    5,   0x02, 2, 64, 0, 0,  // bulk IN, OUT: 64 bytes
};

class Starts : public BoardTest {
  protected:
    void expect_refused() {
        start();
        EXPECT_EQ(receiver->wait_exit(30s), 1);
        const std::string described = "USB device opened\nGadget init done\n";
        std::string lines = start_lines();
        lines.replace(lines.find(described), described.size(),
                      "Couldn't open USB device\nGadget init failed\n");
        EXPECT_EQ(receiver->lines_without_delta(), lines);
    }
};

TEST_F(Starts, GadgetfsMayBeMountedAlready) {
    std::filesystem::create_directory("/dev/gadget");
    ASSERT_EQ(std::system("modprobe gadgetfs && mount -t gadgetfs none /dev/gadget"), 0);
    ASSERT_TRUE(std::filesystem::exists("/dev/gadget/musb-hdrc"));
    expect_start_works();
}

TEST_F(Starts, WithoutGadgetfsItIsRefused) {
    hide_gadgetfs_module(true);
    expect_refused();
    hide_gadgetfs_module(false);
    expect_start_works();
}

TEST_F(Starts, WithoutAControllerItIsRefused) {
    unload_controller();
    expect_refused();
    load_controller();
    expect_start_works();
}

TEST_F(Starts, FullSpeedFailsAtTheFirstRead) {
    load_controller(UsbSpeed::kFull);
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
    set_clock_back(60s);  // the enumeration and the reader's first second may take five
    leave_out_interface_strings(true);
    ASSERT_TRUE(host->wait_for_device(20s)) << receiver->output();
    EXPECT_EQ(host->sysfs_text("speed"), "12");
    EXPECT_EQ(host->configuration_descriptor(), kConfigurationAtFullSpeed);
    expect_link_end("USB connected\n");
    load_controller();
    expect_start_works();
}

}  // namespace
