// bare-link PORT: the least that a program on this USB link has to do, to compare the receiver
// with.
//
// Takes the camera's stream off the bulk OUT endpoint 512 bytes at a time and throws it away;
// writes each datagram on 127.0.0.1:PORT to the bulk IN endpoint. One blocking call and its
// successor each.

#include <arpa/inet.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "usb/gadget.h"
#include "usb/usb_link_state.h"
#include "usb/usb_reader.h"

namespace {

constexpr std::size_t kReadSize = 512;
constexpr useconds_t kPollPauseUs = 10000;

int forward_datagrams(std::uint16_t port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
        perror("bare-link");
        return 1;
    }
    fprintf(stderr, "Bare link ready\n");
    UsbGadgetEndpoint* const endpoint = usb_link.in_endpoint.load();
    for (char datagram[kReadSize];;) {
        const ssize_t length = recvfrom(fd, datagram, sizeof(datagram), 0, nullptr, nullptr);
        if (length < 0) {
            return 1;
        }
        usb_gadget_endpoint_write(endpoint, datagram, static_cast<std::size_t>(length), 0);
    }
}

}  // namespace

// In place of the receiver's reader: called once the host has configured the device.
bool usb_reader_start() {
    return pthread_create(&usb_link.reader, nullptr, usb_reader_thread, nullptr) == 0;
}

void usb_reader_stop() {}

void* usb_reader_thread(void* /*unused*/) {
    UsbGadgetEndpoint* const endpoint = usb_link.out_endpoint.load();
    for (char packet[kReadSize];
         usb_gadget_endpoint_read(endpoint, packet, sizeof(packet), 0) > 0;) {
    }
    _exit(0);
}

int main(int argc, char* argv[]) {
    if (argc != 2 || gadget_start() != 0) {
        return 1;
    }
    while (usb_link.out_endpoint.load() == nullptr || usb_link.in_endpoint.load() == nullptr) {
        if (gadget_poll() == 0) {
            return 1;
        }
        usleep(kPollPauseUs);
    }
    return forward_datagrams(static_cast<std::uint16_t>(strtol(argv[1], nullptr, 10)));
}
