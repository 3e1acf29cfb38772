// The same again and again: what a cycle leaves behind would add up. BOARD_CYCLES says how often.

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/board/board_figures.h"
#include "tests/board/board_support.h"
#include "tests/board/full_rate_stream.h"

namespace {

int cycles() {
    const char* const text = std::getenv("BOARD_CYCLES");
    return text == nullptr ? 10 : std::stoi(text);
}

// The first cycles are the process's and the kernel's warming up. Single values vary, by more than
// what is looked for: a growth is one that all of the last cycles show over any of the first.
constexpr std::size_t kWarmUp = 3;

class Cycles : public BoardTest {
  protected:
    Cycles() { leave_out_interface_strings(true); }
    ~Cycles() override { print_figures(seen); }

    void expect_no_growth(const std::string& name, long tolerance) const {
        ASSERT_GE(seen.size(), 2 * kWarmUp);
        std::vector<long> values;
        for (const Figures& figures : seen) {
            values.push_back(figure(figures, name));
        }
        EXPECT_LE(*std::min_element(values.end() - kWarmUp, values.end()),
                  *std::max_element(values.begin(), values.begin() + kWarmUp) + tolerance)
            << name;
    }
    void expect_constant(const std::string& name) const {
        for (const Figures& figures : seen) {
            EXPECT_EQ(figure(figures, name), figure(seen.front(), name)) << name;
        }
    }

    std::vector<Figures> seen;
};

TEST_F(Cycles, PlugCyclesOfOneProcessLeaveNothingBehind) {
    start();
    ASSERT_TRUE(receiver->wait_for("Gadget init done\n", 20s));
    set_clock_back(60s);
    std::string lines;
    for (int cycle = 1; cycle <= cycles(); ++cycle) {
        ASSERT_TRUE(receiver->wait_for("USB connected\n", 20s, cycle)) << "cycle " << cycle;
        ASSERT_NO_FATAL_FAILURE(switch_port_off()) << "cycle " << cycle;
        std::this_thread::sleep_for(200ms);  // for the reader to end
        seen.push_back(process_figures(receiver->pid()));
        lines += "USB connected\nUSB disconnected\n";
        set_clock_back(10s);
        switch_port(true);
    }
    link_up();
    expect_video_passes();
    EXPECT_EQ(lines_after_start(), lines + "USB connected\n" + kFirstVideoLines);

    expect_constant("files");
    expect_constant("threads");
    expect_no_growth("data", 0);
    // The records of closed endpoints are kept, two a cycle; the rest is a page that is touched for
    // the first time.
    expect_no_growth("anonymous", 8 + cycles() * 256 / 1024);
}

// Every process gets its link and its video through, whichever way the one before it ended.
TEST_F(Cycles, RestartsLeaveNothingBehind) {
    for (int cycle = 1; cycle <= cycles(); ++cycle) {
        expect_start_works();
        switch (cycle % 3) {
            case 0:
                switch_port(false);
                expect_link_end(std::string("USB connected\n") + kFirstVideoLines);
                switch_port(true);
                break;
            case 1:
                receiver->signal(SIGTERM);
                EXPECT_EQ(receiver->wait_exit(20s), 1);
                break;
            default:
                receiver->signal(SIGKILL);
                EXPECT_EQ(receiver->wait_exit(20s), -SIGKILL);
                break;
        }
        ASSERT_FALSE(HasFailure()) << "cycle " << cycle;
        EXPECT_TRUE(std::filesystem::exists("/dev/gadgetfs/dummy_udc"));
        EXPECT_FALSE(std::filesystem::exists("/dev/gadgetfs/ep6in-bulk"));
        EXPECT_FALSE(std::filesystem::exists("/dev/gadgetfs/ep2out-bulk"));
        host->close();
        seen.push_back(kernel_figures());
    }

    expect_constant("gadgetfs");
    expect_constant("dummy_hcd");
    expect_constant("processes");
    expect_constant("shm");
    // Counted by each of the two processors in steps of 32.
    expect_no_growth("file-nr", 64);
    // A few of /proc and of the shared directories come and go.
    expect_no_growth("inode-nr", 4);
    expect_no_growth("Shmem", 1024);  // a ring beside the next one's would be 60 MB
    expect_no_growth("Slab", 1024);
    // What the processors keep in reserve varies by 10 MB. A process that stayed would cost 5 a
    // cycle.
    expect_no_growth("MemUsed", 16384);
}

}  // namespace
