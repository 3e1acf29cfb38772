#include "tests/board/report_listener.h"

#include <algorithm>

namespace {

constexpr std::chrono::seconds kEffect(15);
constexpr std::chrono::milliseconds kBetweenLooks(50);  // at a condition, at most
constexpr std::size_t kRecordState = 9;                 // byte of the status record

}  // namespace

void Arrivals::add() {
    const auto now = Clock::now();
    if (count++ > 0) {
        longest_pause = std::max<std::chrono::duration<double>>(longest_pause, now - last);
    }
    last = now;
}

bool ReportListener::until(const std::function<bool()>& condition,
                           std::chrono::milliseconds timeout) {
    const auto end = Arrivals::Clock::now() + timeout;
    while (!condition()) {
        if (Arrivals::Clock::now() >= end) {
            return false;
        }
        if (const auto datagram = app.receive(kBetweenLooks)) {
            note(*datagram);
        }
    }
    return true;
}

void ReportListener::listen(std::chrono::milliseconds time) {
    until([] { return false; }, time);
}

bool ReportListener::until_item_is(const std::string& key, const std::string& value) {
    return until([&] { return items_[key] == value; }, kEffect);
}

bool ReportListener::until_recording_is(bool on) {
    return until([&] { return (record_state_ != 0) == on; }, kEffect);
}

void ReportListener::note(const Bytes& datagram) {
    if (datagram.at(0) == 0x07) {
        reports_.add();
        items_ = report_items(std::string(datagram.begin() + 1, datagram.end()));
    } else if (datagram.at(1) == 0x00) {
        status_records_.add();
        record_state_ = datagram.at(kRecordState);
    } else {
        parameter_blocks_.add();
    }
}
