// Cuts the ring's parts into access units: one picture with what goes before it. A part is a piece
// of the byte stream, cut by the camera wherever it likes.
//
// That a picture is over shows only when the next one begins, a thirtieth of a second later. The
// camera fills its parts up to a largest size, so that a smaller one ends a picture: this is
// relied on once it has held for several pictures in a row; each time that it fails it must hold
// for four times as many.
//
// Thread-bound to its owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

class AccessUnits {
  public:
    struct Unit {
        std::span<const std::uint8_t> bytes;
        bool key;           // an IDR picture with its parameter sets
        std::string codec;  // of a key unit, as browsers name it: avc1.640028
    };
    using Handler = std::function<void(const Unit&)>;

    explicit AccessUnits(Handler handler) : handler_(std::move(handler)) {}

    // Hands on the units that the part completes.
    void take(std::span<const std::uint8_t> part);
    // Something is missing here: nothing is handed on until the next key unit.
    void lose();
    // Nothing has come for a while: a picture that waits for the next one is taken for whole, where
    // its last part is a smaller one.
    void pause();
    // Nothing has come for so long that it is taken for whole in any case.
    void long_pause();

    // Units that were begun and could not be handed on.
    std::size_t dropped() const { return dropped_; }

  private:
    void judge_expectation(std::span<const std::uint8_t> part);
    void scan();
    void begin_unit_type(std::uint8_t type, std::size_t header);
    void hand_on(std::size_t size);
    void forget_unit();

    Handler handler_;
    std::vector<std::uint8_t> pending_;
    std::size_t scanned_ = 0;  // no start code begins before
    bool in_unit_ = false;     // pending_ begins with a unit's first byte
    bool has_sps_ = false, has_pps_ = false, has_idr_ = false, has_picture_ = false;
    std::string codec_;
    bool synced_ = false;  // a key unit was handed on, and nothing lost since
    std::size_t dropped_ = 0;

    std::size_t largest_part_ = 0;
    bool smaller_part_ = false;  // the last one
    int right_in_a_row_ = 0;
    int right_until_trusted_ = 8;
    std::optional<std::size_t> expected_end_;  // of the unit, were the last part its last
    bool ended_early_ = false;                 // the last part ended a unit by its size alone
};

// Those of a picture, Annex B. Reentrant.
std::vector<std::uint8_t> parameter_sets(std::span<const std::uint8_t> picture);
