#include "monitor/command_sender.h"

std::string CommandSender::send(const CheckedCommand& command, const void* hand) {
    if (!command.refusal.empty()) {
        return command.refusal;
    }
    const std::lock_guard lock(mutex_);
    if (store_.presence().receiver != "present" || !zoom_.send(command.datagram, hand)) {
        return "there is no receiver";
    }
    if (!command.movement.empty()) {
        store_.set_movement(command.movement);
    }
    store_.add_line("sent " + command.json);
    return "";
}
