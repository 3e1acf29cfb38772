// What the receiver sends: counted, and written as lines of hex digits where that is asked. One
// thread.
#pragma once

#include <cstdio>
#include <string>

#include "simulator/usb_pipes.h"

class PacketRecord {
  public:
    explicit PacketRecord(UsbPipes pipes) : pipes_(std::move(pipes)) {}
    PacketRecord(const PacketRecord&) = delete;
    PacketRecord& operator=(const PacketRecord&) = delete;
    ~PacketRecord();  // takes the last

    // An empty path: no file. False after a message.
    bool open(const std::string& path);
    void take();
    std::size_t count() const { return count_; }

  private:
    const UsbPipes pipes_;
    FILE* file_ = nullptr;
    std::size_t count_ = 0;
};
