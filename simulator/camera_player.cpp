#include "simulator/camera_player.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>

#include "simulator/camera_stream.h"

namespace {

constexpr std::size_t kRawPiece = 16384;
constexpr std::size_t kGarbageBytes = 4096;
constexpr unsigned kPacketsEvery = 10;

void append(Bytes& to, const Bytes& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

bool CameraPlayer::load() {
    const std::string& path = options_.h264.empty() ? options_.raw : options_.h264;
    if (path.empty()) {
        return true;
    }
    std::ifstream file(path, std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file || bytes.empty()) {
        fprintf(stderr, "camera-simulator: %s cannot be read or is empty\n", path.c_str());
        return false;
    }
    if (options_.h264.empty()) {
        lay_out_raw(bytes);
    } else {
        lay_out_video(bytes);
    }
    return true;
}

void CameraPlayer::lay_out_video(const Bytes& file) {
    const unsigned every =
        options_.packets_every.value_or(options_.sends_status() ? 0 : kPacketsEvery);
    unsigned since_packets = 0;
    std::uint16_t sequence = 0;
    for (const Bytes& unit : access_units(file)) {
        Piece piece{};
        for (std::size_t at = 0; at < unit.size(); at += options_.chunk) {
            const auto size = std::min(options_.chunk, unit.size() - at);
            append(piece.bytes, video_envelope(std::span(unit).subspan(at, size)));
            ++piece.chunks;
            if (every != 0 && ++since_packets >= every) {
                since_packets = 0;
                append(piece.bytes, control_envelope(camera_packets(sequence)));
                sequence = static_cast<std::uint16_t>(sequence + 2);
            }
        }
        pieces_.push_back(std::move(piece));
    }
    // The receiver takes an envelope when a byte behind it has come.
    append(pieces_.back().bytes, video_envelope(filler_chunk()));
}

void CameraPlayer::lay_out_raw(const Bytes& file) {
    for (std::size_t at = 0; at < file.size(); at += kRawPiece) {
        const auto piece = std::span(file).subspan(at, std::min(kRawPiece, file.size() - at));
        pieces_.push_back({Bytes(piece.begin(), piece.end()), 1});
    }
}

void CameraPlayer::start() {
    due_ = Clock::now();
}

bool CameraPlayer::play() {
    if (finished() || Clock::now() < due_) {
        return true;
    }
    const Piece& piece = pieces_[next_];
    if (!send(piece.bytes)) {
        return false;
    }
    chunks_ += piece.chunks;
    const Pace pace = options_.pace.value_or(options_.raw.empty() ? Pace::kRealtime : Pace::kMax);
    std::chrono::duration<double> step(0);
    if (pace == Pace::kRealtime) {
        step = std::chrono::duration<double>(1.0 / options_.fps);
    } else if (pace == Pace::kMegabits) {
        const double bits = static_cast<double>(piece.bytes.size()) * 8;
        step = std::chrono::duration<double>(bits / (options_.megabits * 1e6));
    }
    due_ += std::chrono::duration_cast<Clock::duration>(step);
    ++next_;
    if (finished() && options_.loop) {
        next_ = 0;
    }
    return true;
}

bool CameraPlayer::send_garbage() {
    static std::minstd_rand random(1);  // the same at each run
    Bytes garbage(kGarbageBytes);
    std::ranges::generate(garbage, [] { return static_cast<std::uint8_t>(random() >> 8 & 0xFF); });
    return send(garbage);
}

bool CameraPlayer::send(const Bytes& bytes) {
    if (!camera_.send(bytes)) {
        return false;
    }
    bytes_ += bytes.size();
    return true;
}
