// receiver-monitor: a main application that shows the camera in a browser. It knows the receiver by
// its documented interfaces alone.

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>

#include "monitor/command_sender.h"
#include "monitor/held_zoom.h"
#include "monitor/monitor_options.h"
#include "monitor/mqtt_publisher.h"
#include "monitor/page_address.h"
#include "monitor/process_limits.h"
#include "monitor/receiver_link.h"
#include "monitor/telemetry_store.h"
#include "monitor/video_hub.h"
#include "monitor/web_server.h"

namespace {

// The values of the video's side that change on their own.
void tell_video(VideoHub& video, TelemetryStore& store, VideoFigures* before) {
    const VideoFigures figures = video.figures();
    if (figures.ring_forbidden && !before->ring_forbidden) {
        constexpr char kWhy[] = "no video: only the receiver's user may read its ring";
        store.add_line(kWhy);
        fprintf(stderr, "receiver-monitor: %s\n", kWhy);
    }
    store.set_number("video_width", static_cast<std::uint64_t>(figures.format.width));
    store.set_number("video_height", static_cast<std::uint64_t>(figures.format.height));
    store.set_number("video_pictures", figures.units);
    store.set_number("video_missed_parts", figures.missed_parts);
    store.set_number("video_dropped_pictures", figures.dropped_units);
    store.set_number("video_bits_per_second", (figures.bytes - before->bytes) * 8);
    store.set_number("viewers", video.fanout().viewers());
    *before = figures;
}

}  // namespace

int main(int argc, char* argv[]) {
    int status = 0;
    const auto options = parse_monitor_options(argc, argv, &status);
    if (!options) {
        return status;
    }
    set_process_limits();
    // All threads inherit this: the signals are taken below, by this one.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    // A terminal that is closed; under nohup it means nothing.
    struct sigaction hangup {};
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) {
        sigaddset(&ends, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    signal(SIGPIPE, SIG_IGN);

    TelemetryStore store;
    Sticks sticks;
    ReceiverLink link(store,
                      {options->telemetry_port, options->receiver_host, options->receiver_port});
    VideoHub video(options->run_directory, [&] { link.saw_picture(); });
    Mp4Recorder recorder(video.fanout(), store, options->recordings);
    if (!link.start()) {
        fprintf(stderr, "receiver-monitor: UDP port %d: %s\n", options->telemetry_port,
                strerror(errno));
        return 1;
    }
    sticks.put_to_rest();  // a monitor before this one may have been killed
    HeldZoom zoom(link);
    CommandSender commands(store, zoom);
    WebServer server(
        {video, store, zoom, commands, sticks, recorder},
        {options->listen_address, options->listen_port, options->token, options->page});
    if (!server.start()) {
        fprintf(stderr, "receiver-monitor: %s:%d cannot be listened at\n",
                options->listen_address.c_str(), options->listen_port);
        return 1;
    }
    video.start();
    MqttPublisher mqtt(store, options->mqtt);
    mqtt.start();
    printf("http://%s:%d/\n", address_to_open(options->listen_address).c_str(), server.port());
    if (!options->token.empty()) {
        // Not the token: what is printed here is kept in logs.
        puts("To be opened with ?token= and the first line of the token file behind it.");
    }
    fflush(stdout);

    VideoFigures before;
    const timespec second = {1, 0};
    do {
        try {
            tell_video(video, store, &before);
        } catch (const std::exception&) {
            // There is no memory; the next second tells the same.
        }
    } while (sigtimedwait(&ends, nullptr, &second) < 0);
    mqtt.stop();
    video.stop();
    server.stop();
    return 0;
}
