// A gadgetfs model that takes a description of two speeds, and a process that reads what it is
// told.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/gadgetfs_model.h"

// clang-format off
inline const Bytes kTag           = {0, 0, 0, 0};
inline const Bytes kFullSpeed     = {9, 2, 16, 0, 1, 2, 0, 0xC0, 1,   7, 5, 0x86, 2, 64, 0, 0};
inline const Bytes kHighSpeed     = {9, 2, 16, 0, 1, 2, 0, 0xC0, 1,   7, 5, 0x86, 2, 0, 2, 0};
inline const Bytes kDevice        = {18, 1, 0x00, 0x02, 0xFF, 0, 0, 0, 0xD1, 0x18, 0x01, 0x2D, 0, 0, 25, 45, 101, 1};
inline const Bytes kConnectEvent    = {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
inline const Bytes kDisconnectEvent = {0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0};
inline const Bytes kSuspendEvent    = {0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0};

inline constexpr SetupPacket kGetString       = {0x80, 6, 0x0319, 0x0409, 255};
inline constexpr SetupPacket kSelect2         = {0x00, 9, 2, 0, 0};
inline constexpr SetupPacket kSetInterface    = {0x01, 11, 0, 0, 0};
inline constexpr SetupPacket kVendorData      = {0x40, 52, 0, 0, 3};
// clang-format on

inline Bytes joined(const std::vector<Bytes>& pieces) {
    Bytes all;
    for (const Bytes& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

inline const Bytes kDescription = joined({kTag, kFullSpeed, kHighSpeed, kDevice});

inline Bytes with(Bytes bytes, std::size_t at, std::uint8_t value) {
    bytes.at(at) = value;
    return bytes;
}

class Model : public testing::Test {
  protected:
    void describe() {
        model.open_control();
        ASSERT_EQ(model.write_control(kDescription).result, 54);
    }
    void connect() {
        describe();
        model.connect(UsbSpeed::kHigh);
        ASSERT_EQ(read(), kConnectEvent);
    }
    // A request that the process has read.
    void take(const SetupPacket& setup, const Bytes& data = {}) {
        model.setup(setup, data, false);
        ASSERT_EQ(read().at(8), 3);
    }

    Bytes read(std::size_t size = 60) {
        return model.read_control(size, true).value_or(CallResult{}).bytes;
    }
    int read_error(std::size_t size) {
        const auto result = model.read_control(size, true);
        return result && result->result < 0 ? result->error : 0;
    }
    int write_error(const Bytes& bytes) {
        const CallResult result = model.write_control(bytes);
        return result.result < 0 ? result.error : 0;
    }
    ControlStatus answer() { return model.control_answer().value_or(ControlResult{}).status; }

    GadgetfsModel model;
};
