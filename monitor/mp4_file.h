// One MP4 file of H.264 pictures as they come, copied and not encoded anew. It is written in
// fragments, of a group of pictures or two seconds, so that what there is plays also where its end
// was never written. Thread-bound to its owner.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct AVFormatContext;

class Mp4File {
  public:
    struct Video {
        std::vector<std::uint8_t> parameter_sets;  // Annex B
        int width;
        int height;
    };

    // Null, with the reason in *error, where the file cannot be made; one that is there is not
    // overwritten.
    static std::unique_ptr<Mp4File> create(const std::string& path, const Video& video,
                                           std::string* error);
    // As finish, for who does not ask what became of it.
    ~Mp4File();
    Mp4File(const Mp4File&) = delete;
    Mp4File& operator=(const Mp4File&) = delete;

    // A picture, and when it came. False where it cannot be written any more, for this reason.
    bool add(std::span<const std::uint8_t> picture, bool key, std::uint64_t microseconds);
    std::string reason() const;
    // Writes the end, down to the disk. Empty, or why that was not possible: the file then ends
    // with its last whole fragment. Nothing is added to it from then on.
    std::string finish();
    std::uint64_t bytes() const { return written_; }

  private:
    Mp4File() = default;
    static int write(void* file, std::uint8_t* bytes, int size);
    bool open(const std::string& path, std::string* error);
    void end_file();
    void set_error(bool failed, int error);  // the first one counts

    AVFormatContext* context_ = nullptr;
    int fd_ = -1;
    int error_ = 0;  // of the system, by its number
    std::uint64_t written_ = 0;
    std::uint64_t whole_ = 0;  // up to the end of a fragment
    bool has_first_ = false;
    std::uint64_t first_us_ = 0;
    std::int64_t last_time_ = -1;
};
