#include "link_under_test.h"

#include <cstdio>

using namespace std::chrono_literals;

namespace {

constexpr std::uint16_t kBareLinkPort = 6001;

}  // namespace

const char* name_of(Program program) {
    return program == Program::kReceiver ? "receiver" : "bare link";
}

std::unique_ptr<LinkUnderTest> start_link(Program program) {
    auto link = std::make_unique<LinkUnderTest>();
    if (program == Program::kReceiver) {
        link->process =
            std::make_unique<ReceiverProcess>(link->reports.arguments(), link->board.environment());
    } else {
        link->process =
            std::make_unique<ReceiverProcess>(std::vector{std::to_string(kBareLinkPort)},
                                              link->board.environment(), BARE_LINK_PROGRAM);
    }
    // A few bytes at the end: the link counts as in use once data has come.
    const bool up =
        link->board.wait_for_device(10s) && link->board.configure() &&
        link->board.wait_for_endpoints(5s) && link->board.bulk_out(Bytes(3, 0)) &&
        link->board.wait_for_bulk_out_taken(5s) &&
        (program == Program::kReceiver || link->process->wait_for("Bare link ready\n", 5s));
    if (!up) {
        fprintf(stderr, "The %s did not come up:\n%s", name_of(program),
                link->process->output().c_str());
        return nullptr;
    }
    link->port = program == Program::kReceiver
                     ? link->process->app_socket().value_or(ReceiverProcess::Socket{}).port
                     : kBareLinkPort;
    return link;
}
