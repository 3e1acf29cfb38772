#include "monitor/mp4_file.h"

#include <fcntl.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr AVRational kMicroseconds = {1, 1000000};
constexpr AVRational kVideoClock = {1, 90000};
constexpr int kBufferSize = 65536;
constexpr std::int64_t kFirstDuration = 90000 / 30;

bool describe(AVStream* stream, const Mp4File::Video& video) {
    AVCodecParameters* parameters = stream->codecpar;
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = AV_CODEC_ID_H264;
    parameters->width = video.width;
    parameters->height = video.height;
    const auto& sets = video.parameter_sets;
    parameters->extradata =
        static_cast<std::uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters->extradata == nullptr) {
        return false;
    }
    std::copy(sets.begin(), sets.end(), parameters->extradata);
    parameters->extradata_size = static_cast<int>(sets.size());
    stream->time_base = kVideoClock;
    return true;
}

AVIOContext* new_writer(void* file, int (*write)(void*, std::uint8_t*, int)) {
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kBufferSize));
    AVIOContext* writer = buffer == nullptr ? nullptr
                                            : avio_alloc_context(buffer, kBufferSize, 1, file,
                                                                 nullptr, write, nullptr);
    if (writer == nullptr) {
        av_free(buffer);
    }
    return writer;
}

}  // namespace

std::unique_ptr<Mp4File> Mp4File::create(const std::string& path, const Video& video,
                                         std::string* error) {
    if (video.width == 0 || video.height == 0) {
        *error = "the picture's size is not known";
        return nullptr;
    }
    av_log_set_level(AV_LOG_QUIET);  // who asked is told the reason
    std::unique_ptr<Mp4File> file(new Mp4File);
    AVFormatContext** context = &file->context_;
    const bool made = avformat_alloc_output_context2(context, nullptr, "mp4", nullptr) >= 0;
    AVStream* stream = made ? avformat_new_stream(*context, nullptr) : nullptr;
    if (stream == nullptr || !describe(stream, video) ||
        ((*context)->pb = new_writer(file.get(), &Mp4File::write)) == nullptr) {
        *error = "no memory";
        return nullptr;
    }
    return file->open(path, error) ? std::move(file) : nullptr;
}

bool Mp4File::open(const std::string& path, std::string* error) {
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        *error = strerror(errno);
        return false;
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    av_dict_set(&options, "frag_duration", "2000000", 0);
    const int code = avformat_write_header(context_, &options);
    av_dict_free(&options);
    avio_flush(context_->pb);
    if (code < 0 || error_ != 0) {
        *error = error_ != 0 ? reason() : "no MP4 can be made of this video";
        error_ = EIO;  // there is no end to write
        unlink(path.c_str());
        return false;
    }
    whole_ = written_;
    return true;
}

int Mp4File::write(void* file, std::uint8_t* bytes, int size) {
    auto* self = static_cast<Mp4File*>(file);
    for (int done = 0; done < size && self->error_ == 0;) {
        const ssize_t count =
            ::write(self->fd_, bytes + done, static_cast<std::size_t>(size - done));
        if (count > 0) {
            done += static_cast<int>(count);
            self->written_ += static_cast<std::uint64_t>(count);
        } else if (errno != EINTR) {
            self->error_ = errno;
        }
    }
    return self->error_ == 0 ? size : AVERROR(self->error_);
}

std::string Mp4File::finish() {
    end_file();
    return error_ == 0 ? "" : reason();
}

void Mp4File::end_file() {
    if (fd_ >= 0) {
        if (error_ == 0) {
            const int code = av_write_trailer(context_);
            avio_flush(context_->pb);
            set_error(code < 0, EIO);
        }
        // A network's file system may refuse only here what it took.
        set_error(error_ == 0 && fdatasync(fd_) != 0, errno);
        if (error_ != 0 && ftruncate(fd_, static_cast<off_t>(whole_)) == 0) {
            written_ = whole_;  // or else it ends with a piece that players leave out
        }
        set_error(close(fd_) != 0, errno);
        fd_ = -1;
    }
}

void Mp4File::set_error(bool failed, int error) {
    if (failed && error_ == 0) {
        error_ = error;
    }
}

Mp4File::~Mp4File() {
    end_file();  // the reason would take memory
    if (context_ != nullptr && context_->pb != nullptr) {
        av_freep(&context_->pb->buffer);
        avio_context_free(&context_->pb);
    }
    avformat_free_context(context_);
}

bool Mp4File::add(std::span<const std::uint8_t> picture, bool key, std::uint64_t microseconds) {
    if (!has_first_) {
        has_first_ = true;
        first_us_ = microseconds;
    }
    AVPacket* packet = av_packet_alloc();
    if (packet == nullptr || av_new_packet(packet, static_cast<int>(picture.size())) < 0) {
        av_packet_free(&packet);
        error_ = ENOMEM;
        return false;
    }
    std::copy(picture.begin(), picture.end(), packet->data);
    // Two pictures that came at one time must not have the same in the file.
    const std::int64_t time =
        std::max(last_time_ + 1, av_rescale_q(static_cast<std::int64_t>(microseconds - first_us_),
                                              kMicroseconds, context_->streams[0]->time_base));
    // Each lasts until the next one; this is for the last of all.
    packet->duration = last_time_ < 0 ? kFirstDuration : time - last_time_;
    packet->pts = packet->dts = last_time_ = time;
    packet->flags = key ? AV_PKT_FLAG_KEY : 0;
    const std::uint64_t before = written_;
    const int code = av_write_frame(context_, packet);
    av_packet_free(&packet);
    // A fragment is written as a whole, when the picture behind it has come.
    avio_flush(context_->pb);
    set_error(code < 0, EIO);
    if (error_ == 0 && written_ != before) {
        whole_ = written_;
    }
    return error_ == 0;
}

std::string Mp4File::reason() const {
    return strerror(error_);
}
