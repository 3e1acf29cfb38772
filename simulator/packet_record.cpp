#include "simulator/packet_record.h"

PacketRecord::~PacketRecord() {
    if (file_ != nullptr) {
        take();
        fclose(file_);
    }
}

bool PacketRecord::open(const std::string& path) {
    file_ = path.empty() ? nullptr : fopen(path.c_str(), "w");
    if (file_ == nullptr && !path.empty()) {
        perror(path.c_str());
    }
    return path.empty() || file_ != nullptr;
}

void PacketRecord::take() {
    while (const auto packet = pipes_.wait_for_bulk_in(count_, Milliseconds(0))) {
        ++count_;
        if (file_ != nullptr) {
            for (const std::uint8_t byte : *packet) {
                fprintf(file_, "%02X", byte);
            }
            fputc('\n', file_);
            fflush(file_);
        }
    }
}
