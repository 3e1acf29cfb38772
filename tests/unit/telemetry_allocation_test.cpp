// The decoder works in the record's own arrays: no message makes it allocate.
#include <gtest/gtest.h>

#include <cstdlib>

#include "bench/allocation_count.h"
#include "protocol/camera_state.h"
#include "protocol/telemetry_decode.h"
#include "tests/cases/telemetry_messages.h"

int camera_stop_shooting() {
    return 0;
}

int camera_power(const char*) {
    return 0;
}

namespace {

class Allocations : public testing::TestWithParam<TelemetryMessage> {};

TEST_P(Allocations, None) {
    const std::vector<std::uint8_t>& packet = GetParam().packet;
    CameraState state{};
    const unsigned long before = allocation_count;
    telemetry_decode(&state, packet.data(), packet.size());
    telemetry_decode_verified(&state, packet.data(), packet.size());
    EXPECT_EQ(allocation_count - before, 0U);
}

INSTANTIATE_TEST_SUITE_P(Telemetry, Allocations, testing::ValuesIn(all_telemetry_messages()),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(AllocationCount, SeesNewAndMalloc) {
    const unsigned long before = allocation_count;
    CameraState* volatile object = new CameraState;  // volatile: not left out as unused
    EXPECT_EQ(allocation_count - before, 1U);
    void* volatile block = malloc(100);
    EXPECT_EQ(allocation_count - before, 2U);
    free(block);
    delete object;
}

}  // namespace
