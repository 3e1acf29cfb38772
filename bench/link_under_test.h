// One of the two programs on a simulated board, configured and ready. Both use the receiver's fixed
// port and shared memory: one at a time.
#pragma once

#include <cstdint>
#include <memory>

#include "simulator/simulated_board.h"
#include "tests/e2e/main_application.h"
#include "tests/e2e/receiver_process.h"

enum class Program { kReceiver, kBareLink };

struct LinkUnderTest {
    SimulatedBoard board;
    MainApplication reports;  // takes the reports and leaves them unread
    std::unique_ptr<ReceiverProcess> process;
    std::uint16_t port = 0;  // where it takes datagrams from
};

// Null, after a message, when the program does not come up.
std::unique_ptr<LinkUnderTest> start_link(Program program);

const char* name_of(Program program);
