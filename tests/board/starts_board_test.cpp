// What a start meets on the board: the file system, the controller, the speed of the bus.

#include <cstdlib>
#include <filesystem>

#include "tests/board/board_support.h"

namespace {

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
    expect_link_end("USB connected\n");
    load_controller();
    expect_start_works();
}

}  // namespace
