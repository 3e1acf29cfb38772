#include "video/frame_buffers.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "temporary_root.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr char kLive[] = "vantarel_framebuffer";
constexpr char kTranscoding[] = "vantarel_framebuffer_transcoding";
constexpr std::size_t kLiveSize = 60003624;
constexpr std::size_t kTranscodingSize = 13003624;
constexpr char kInitLog[] =
    "Init frame buffer 60003624 bytes\n"
    "Init frame buffer for transcoding 13003624 bytes\n";

struct Opening {
    std::string name;
    int flags;
    mode_t mode;
    bool operator==(const Opening&) const = default;
};
std::vector<Opening> openings;

// Descriptor to give out instead of the object's, -1 to fail, or -2 to open the object.
std::function<int(const std::string& name)> instead_of_opening;
bool memory_cannot_be_given_back = false;

template <typename Function>
Function* next_function(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int open_object(const char* name, int flags) {
    static auto* const real = next_function<int(const char*, int, mode_t)>("shm_open");
    return real(name, flags, 0600);
}

}  // namespace

// In front of the C library's: what the receiver asks for, and the failures that a test wants.
extern "C" int shm_open(const char* name, int flags, mode_t mode) {
    static auto* const real = next_function<int(const char*, int, mode_t)>("shm_open");
    openings.push_back({name, flags, mode});
    const int instead = instead_of_opening ? instead_of_opening(name) : -2;
    return instead != -2 ? instead : real(name, flags, mode);
}

extern "C" int madvise(void* address, std::size_t length, int advice) noexcept {
    static auto* const real = next_function<int(void*, std::size_t, int) noexcept>("madvise");
    if (advice == MADV_REMOVE && memory_cannot_be_given_back) {
        errno = ENOSYS;
        return -1;
    }
    return real(address, length, advice);
}

namespace {

// An object as another process has it mapped.
class View {
  public:
    View(const char* name, std::size_t size) : size_(size), fd_(open_object(name, O_RDWR)) {
        void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
        bytes_ = memory != MAP_FAILED ? static_cast<std::uint8_t*>(memory) : nullptr;
    }
    ~View() {
        if (bytes_ != nullptr) {
            munmap(bytes_, size_);
        }
        close(fd_);
    }
    View(const View&) = delete;
    View& operator=(const View&) = delete;

    std::uint8_t* at(std::size_t offset) const { return bytes_ + offset; }
    Bytes bytes(std::size_t offset, std::size_t count) const {
        return Bytes(at(offset), at(offset) + count);
    }
    Bytes header() const { return bytes(0, 24); }
    Bytes slot_header(std::size_t slot) const { return bytes(24 + slot * 300018, 18); }
    Bytes part(std::size_t slot, std::size_t length) const {
        return bytes(24 + slot * 300018 + 18, length);
    }
    // A 16-bit word that the writer may change at this moment.
    std::uint16_t word(std::size_t offset) const {
        return __atomic_load_n(static_cast<std::uint16_t*>(static_cast<void*>(at(offset))),
                               __ATOMIC_ACQUIRE);
    }
    void set_word(std::size_t offset, std::uint16_t value) const {
        at(offset)[0] = static_cast<std::uint8_t>(value);
        at(offset)[1] = static_cast<std::uint8_t>(value >> 8);
    }
    bool is_zero(std::size_t from, std::size_t to) const {
        return std::all_of(at(from), at(to), [](std::uint8_t byte) { return byte == 0; });
    }
    struct stat status() const {
        struct stat result {};
        fstat(fd_, &result);
        return result;
    }
    // Memory that the object takes.
    std::size_t occupied() const { return static_cast<std::size_t>(status().st_blocks) * 512; }

  private:
    std::size_t size_;
    int fd_;
    std::uint8_t* bytes_;
};

// Leaves an object as an earlier run might have.
void leave_object(const char* name, std::size_t size) {
    const int fd = open_object(name, O_RDWR | O_CREAT);
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ASSERT_NE(memory, MAP_FAILED);
    memset(memory, 0xEE, size);
    munmap(memory, size);
    close(fd);
}

// How many times this process has one of the objects mapped.
int maps_of_objects() {
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find("vantarel_framebuffer") != std::string::npos ? 1 : 0;
    }
    return count;
}

class FrameBuffers : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(TemporaryRoot::maps_places());
        forget();
    }
    void TearDown() override { forget(); }

    std::string log_of(const std::function<void()>& action) {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }
    std::string init() {
        return log_of([] { EXPECT_EQ(frame_buffers_init(), 0); });
    }
    // The part lies in a block of exactly its size.
    std::string queue(const Bytes& part) {
        const auto block = std::make_unique<std::uint8_t[]>(part.size());
        std::ranges::copy(part, block.get());
        return log_of([&] { frame_queue_part(block.get(), part.size()); });
    }
    // Without the capture of the log: for many.
    void queue_quietly(const Bytes& part) { frame_queue_part(part.data(), part.size()); }
    // The ring after its first clear, ready for slot 0; the part counter is then 0 still.
    void init_cleared() {
        init();
        View(kLive, kLiveSize).set_word(0, 0);
    }

    TemporaryRoot root_;

  private:
    void forget() {
        instead_of_opening = nullptr;
        memory_cannot_be_given_back = false;
        openings.clear();
        shm_unlink(kLive);
        shm_unlink(kTranscoding);
    }
};

const Bytes kRequestOnly = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

// -- creation -----------------------------------------------------------------------------------

TEST_F(FrameBuffers, CreatesBothObjects) {
    EXPECT_EQ(init(), kInitLog);
    const View live(kLive, kLiveSize);
    const View transcoding(kTranscoding, kTranscodingSize);
    EXPECT_EQ(live.status().st_size, 60003624);
    EXPECT_EQ(transcoding.status().st_size, 13003624);
    EXPECT_EQ(live.status().st_mode & 0777U, 0600U);
    EXPECT_EQ(transcoding.status().st_mode & 0777U, 0600U);
    EXPECT_EQ(live.header(), kRequestOnly);
    EXPECT_EQ(transcoding.header(), kRequestOnly);
    EXPECT_TRUE(live.is_zero(24, kLiveSize));
    EXPECT_TRUE(transcoding.is_zero(24, kTranscodingSize));
}

TEST_F(FrameBuffers, OpensBeforeItCreates) {
    init();
    EXPECT_THAT(openings,
                ElementsAre(Opening{kLive, O_RDWR, 0600}, Opening{kLive, O_RDWR | O_CREAT, 0600},
                            Opening{kTranscoding, O_RDWR, 0600},
                            Opening{kTranscoding, O_RDWR | O_CREAT, 0600}));
    openings.clear();
    init();
    EXPECT_THAT(openings,
                ElementsAre(Opening{kLive, O_RDWR, 0600}, Opening{kTranscoding, O_RDWR, 0600}));
}

TEST_F(FrameBuffers, TakesOverWhatAnEarlierRunLeft) {
    const std::size_t leftovers[][2] = {
        {kLiveSize, kTranscodingSize}, {100, 1}, {kLiveSize + 5000, kTranscodingSize + 70000}};
    for (const auto& sizes : leftovers) {
        leave_object(kLive, sizes[0]);
        leave_object(kTranscoding, sizes[1]);
        init();
        const View live(kLive, kLiveSize);
        const View transcoding(kTranscoding, kTranscodingSize);
        EXPECT_EQ(live.status().st_size, 60003624);
        EXPECT_EQ(transcoding.status().st_size, 13003624);
        EXPECT_EQ(live.header(), kRequestOnly);
        EXPECT_EQ(transcoding.header(), kRequestOnly);
        EXPECT_TRUE(live.is_zero(24, kLiveSize));
        EXPECT_TRUE(transcoding.is_zero(24, kTranscodingSize));
    }
}

TEST_F(FrameBuffers, ReaderOfTheEarlierRunSeesTheRequest) {
    leave_object(kLive, kLiveSize);
    const View earlier(kLive, kLiveSize);
    init();
    EXPECT_EQ(earlier.header(), kRequestOnly);
}

TEST_F(FrameBuffers, MemoryOfTheEarlierRunIsGivenBack) {
    leave_object(kLive, kLiveSize);
    leave_object(kTranscoding, kTranscodingSize);
    init();
    EXPECT_LT(View(kLive, kLiveSize).occupied(), 100000U);
    EXPECT_LT(View(kTranscoding, kTranscodingSize).occupied(), 100000U);
}

TEST_F(FrameBuffers, MemoryThatCannotBeGivenBackIsOverwritten) {
    leave_object(kLive, kLiveSize);
    leave_object(kTranscoding, kTranscodingSize);
    memory_cannot_be_given_back = true;
    init();
    const View live(kLive, kLiveSize);
    EXPECT_EQ(live.header(), kRequestOnly);
    EXPECT_TRUE(live.is_zero(24, kLiveSize));
    EXPECT_TRUE(View(kTranscoding, kTranscodingSize).is_zero(24, kTranscodingSize));
    *live.at(kLiveSize - 1) = 0xEE;
    EXPECT_EQ(queue({0xB1}), "Clear frame shared memory\n");
    EXPECT_TRUE(live.is_zero(24 + 19, kLiveSize));
}

TEST_F(FrameBuffers, InitialisingAgainKeepsOneMapOfEach) {
    init();
    EXPECT_EQ(maps_of_objects(), 2);
    init();
    EXPECT_EQ(maps_of_objects(), 2);
}

TEST_F(FrameBuffers, InitialisingAgainStartsTheSequenceAgain) {
    init();
    queue({0xB1});
    queue({0xB2});
    init();
    queue({0xB3});
    const View live(kLive, kLiveSize);
    EXPECT_EQ(live.word(2), 0);
    EXPECT_THAT(live.slot_header(0),
                ElementsAre(1, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
}

TEST_F(FrameBuffers, RemovesThePublishedResolution) {
    root_.write("/run/vantarel/video_width", "1920");
    root_.write("/run/vantarel/video_height", "1080");
    init();
    EXPECT_FALSE(root_.exists("/run/vantarel/video_width"));
    EXPECT_FALSE(root_.exists("/run/vantarel/video_height"));
}

// -- failures -----------------------------------------------------------------------------------

struct Failure {
    const char* what;
    int (*instead)();  // what is given out in the object's place
};

const Failure kFailures[] = {
    {"not to be opened", [] { return -1; }},
    {"not to be sized", [] { return open("/dev/null", O_RDWR); }},
    {"not to be mapped", [] { return open("/tmp", O_TMPFILE | O_WRONLY, 0600); }},
};

TEST_F(FrameBuffers, FailureOfTheFirstObject) {
    for (const Failure& failure : kFailures) {
        instead_of_opening = [&](const std::string& name) {
            return name == kLive ? failure.instead() : -2;
        };
        EXPECT_EQ(log_of([] { EXPECT_EQ(frame_buffers_init(), -1); }),
                  "Init frame buffer 60003624 bytes\n")
            << failure.what;
        EXPECT_EQ(maps_of_objects(), 0) << failure.what;
    }
}

TEST_F(FrameBuffers, FailureOfTheSecondObjectUnmapsTheFirst) {
    for (const Failure& failure : kFailures) {
        instead_of_opening = [&](const std::string& name) {
            return name == kTranscoding ? failure.instead() : -2;
        };
        EXPECT_EQ(log_of([] { EXPECT_EQ(frame_buffers_init(), -1); }), kInitLog) << failure.what;
        EXPECT_EQ(maps_of_objects(), 0) << failure.what;
    }
}

TEST_F(FrameBuffers, FailureAfterASuccessLeavesNoMap) {
    init();
    instead_of_opening = [](const std::string&) { return -1; };
    log_of([] { EXPECT_EQ(frame_buffers_init(), -1); });
    EXPECT_EQ(maps_of_objects(), 0);
}

TEST_F(FrameBuffers, PartsWithoutARingGoNowhere) {
    instead_of_opening = [](const std::string&) { return -1; };
    log_of([] { EXPECT_EQ(frame_buffers_init(), -1); });
    EXPECT_EQ(queue({0xB1}), "");
}

// -- parts --------------------------------------------------------------------------------------

TEST_F(FrameBuffers, FirstPartClearsTheObjectAndGoesIntoSlotZero) {
    init();
    const View live(kLive, kLiveSize);
    *live.at(kLiveSize - 1) = 0xEE;
    *live.at(23) = 0xEE;
    EXPECT_EQ(queue({0xB1, 0xB2, 0xB3}), "Clear frame shared memory\n");
    EXPECT_THAT(live.header(), ElementsAre(0x00, 0x00,  // no clear request
                                           0x00, 0x00,  // latest sequence 0
                                           0x01, 0x00,  // next slot 1
                                           0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_THAT(live.slot_header(0), ElementsAre(0x03, 0x00, 0x00, 0x00,  // three bytes
                                                 0x00, 0x00,              // sequence 0
                                                 0x00, 0x00,              //
                                                 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_THAT(live.part(0, 3), ElementsAre(0xB1, 0xB2, 0xB3));
    EXPECT_TRUE(live.is_zero(24 + 18 + 3, kLiveSize));
}

TEST_F(FrameBuffers, SecondPartGoesIntoTheNextSlotWithoutAWord) {
    init();
    queue({0xB1});
    const Bytes part(0x12345, 0xB2);
    EXPECT_EQ(queue(part), "");
    const View live(kLive, kLiveSize);
    EXPECT_THAT(live.bytes(0, 6), ElementsAre(0, 0, 1, 0, 2, 0));
    EXPECT_THAT(live.slot_header(1), ElementsAre(0x45, 0x23, 0x01, 0x00,  // 0x12345 bytes
                                                 0x01, 0x00,              // sequence 1
                                                 0x00, 0x00,              //
                                                 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_EQ(live.part(1, part.size()), part);
    EXPECT_EQ(*live.at(24 + 300018 + 18 + part.size()), 0);
}

TEST_F(FrameBuffers, TheTranscodingObjectGetsNoParts) {
    init();
    queue({0xB1});
    queue({0xB2});
    const View transcoding(kTranscoding, kTranscodingSize);
    EXPECT_EQ(transcoding.header(), kRequestOnly);
    EXPECT_TRUE(transcoding.is_zero(24, kTranscodingSize));
}

TEST_F(FrameBuffers, NullAndEmptyPartsAreRefusedWithAMessage) {
    init_cleared();
    const std::uint8_t byte = 0xB1;
    EXPECT_EQ(log_of([] { frame_queue_part(nullptr, 5); }), "Queue part buf is zero\n");
    EXPECT_EQ(log_of([] { frame_queue_part(nullptr, 0); }), "Queue part buf is zero\n");
    EXPECT_EQ(log_of([&] { frame_queue_part(&byte, 0); }), "Queue part len is zero\n");
    EXPECT_TRUE(View(kLive, kLiveSize).is_zero(0, 24 + 300018));
}

TEST_F(FrameBuffers, LargestPartFillsTheLastSlotToTheObjectsEnd) {
    init_cleared();
    const View live(kLive, kLiveSize);
    live.set_word(4, 199);
    queue(Bytes(300000, 0xB1));
    EXPECT_THAT(live.slot_header(199), ElementsAre(0xE0, 0x93, 0x04, 0x00,  // 300,000 bytes
                                                   0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_EQ(*live.at(kLiveSize - 300001), 1);
    EXPECT_THAT(live.bytes(kLiveSize - 300000, 300000), Each(0xB1));
    EXPECT_EQ(live.word(4), 0);
}

TEST_F(FrameBuffers, PartLargerThanASlotIsDropped) {
    init_cleared();
    EXPECT_EQ(queue(Bytes(300001, 0xB1)), "");
    EXPECT_TRUE(View(kLive, kLiveSize).is_zero(0, 24 + 2 * 300018));
}

TEST_F(FrameBuffers, TwoHundredthPartWrapsAndTheNextOverwritesSlotZero) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (unsigned i = 0; i < 199; ++i) {
        queue_quietly({static_cast<std::uint8_t>(i)});
    }
    EXPECT_EQ(live.word(4), 199);
    queue_quietly({199});
    EXPECT_EQ(live.word(4), 0);
    EXPECT_EQ(live.word(2), 199);
    EXPECT_THAT(live.part(199, 1), ElementsAre(199));
    EXPECT_THAT(live.part(0, 1), ElementsAre(0));
    queue_quietly({0xEE});
    EXPECT_EQ(live.word(4), 1);
    EXPECT_EQ(live.word(2), 200);
    EXPECT_THAT(live.part(0, 1), ElementsAre(0xEE));
    EXPECT_THAT(live.slot_header(0),
                ElementsAre(1, 0, 0, 0, 200, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
}

TEST_F(FrameBuffers, AThousandPartsAreEachInTheirSlot) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (unsigned i = 0; i < 1000; ++i) {
        const Bytes part(1 + i % 97, static_cast<std::uint8_t>(i * 7));
        queue_quietly(part);
        const std::size_t slot = i % 200;
        ASSERT_EQ(live.word(2), i);
        ASSERT_EQ(live.word(4), (slot + 1) % 200);
        ASSERT_THAT(live.slot_header(slot), ElementsAre(part.size(), 0, 0, 0, i & 0xFF, i >> 8, 0,
                                                        0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
        ASSERT_EQ(live.part(slot, part.size()), part);
    }
}

TEST_F(FrameBuffers, SequenceGoesOnFromZeroAfter65535) {
    init_cleared();
    const View live(kLive, kLiveSize);
    const Bytes part = {0xB1};
    for (int i = 0; i < 65536; ++i) {
        queue_quietly(part);
    }
    EXPECT_EQ(live.word(2), 65535);
    EXPECT_EQ(live.word(4), 136);  // 65536 parts are 327 rings and 136
    queue_quietly(part);
    EXPECT_EQ(live.word(2), 0);
    EXPECT_THAT(live.slot_header(135),
                ElementsAre(1, 0, 0, 0, 0xFF, 0xFF, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
    EXPECT_THAT(live.slot_header(136),
                ElementsAre(1, 0, 0, 0, 0x00, 0x00, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1));
}

TEST_F(FrameBuffers, MemoryIsWhatPartsWereWrittenInto) {
    init();
    for (int i = 0; i < 1000; ++i) {
        queue_quietly(Bytes(1000, 0xB1));
    }
    EXPECT_LT(View(kLive, kLiveSize).occupied(), 2000000U);  // two pages a slot at most
}

// -- what other processes write -----------------------------------------------------------------

TEST_F(FrameBuffers, ClearRequestOfAnotherProcess) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (std::uint8_t i = 0; i < 5; ++i) {
        queue_quietly({i});
    }
    live.set_word(0, 1);
    EXPECT_EQ(queue({0xB5}), "Clear frame shared memory\n");
    EXPECT_THAT(live.bytes(0, 6), ElementsAre(0, 0, 5, 0, 1, 0));  // the sequence goes on
    EXPECT_THAT(live.part(0, 1), ElementsAre(0xB5));
    EXPECT_TRUE(live.is_zero(24 + 300018, kLiveSize));
    EXPECT_EQ(queue({0xB6}), "");
}

TEST_F(FrameBuffers, ClearRequestIsSixteenBits) {
    init_cleared();
    View(kLive, kLiveSize).set_word(0, 0x0100);
    EXPECT_EQ(queue({0xB1}), "Clear frame shared memory\n");
}

TEST_F(FrameBuffers, SlotIndexBehindTheRingIsTakenAsZero) {
    init_cleared();
    const View live(kLive, kLiveSize);
    for (const std::uint16_t index :
         {std::uint16_t{200}, std::uint16_t{0x8000}, std::uint16_t{0xFFFF}}) {
        live.set_word(4, index);
        queue({static_cast<std::uint8_t>(index >> 8)});
        EXPECT_EQ(live.word(4), 1);
        EXPECT_THAT(live.part(0, 1), ElementsAre(index >> 8));
    }
    EXPECT_TRUE(live.is_zero(24 + 300018, kLiveSize));
}

// Two of the threads' checks never meet a slot that is written again: those that might are not
// counted.
TEST_F(FrameBuffers, AReaderFindsTheLatestPartWhole) {
    init_cleared();
    const View live(kLive, kLiveSize);
    std::atomic<unsigned> checks{0};
    std::atomic<unsigned> torn{0};
    std::atomic<bool> done{false};
    const auto part_of = [](unsigned sequence) {
        return Bytes(40 + sequence % 50, static_cast<std::uint8_t>(sequence));
    };
    queue_quietly(part_of(0));
    std::thread reader([&] {
        while (!done) {
            const unsigned latest = live.word(2);
            const Bytes expected = part_of(latest);
            const std::size_t slot = latest % 200;
            const std::size_t offset = 24 + slot * 300018;
            const unsigned sequence = live.word(offset + 4);
            const unsigned length = live.word(offset);
            const Bytes bytes = live.part(slot, expected.size());
            if (live.word(2) - latest >= 190) {
                continue;
            }
            ++checks;
            torn += sequence != latest || length != expected.size() || bytes != expected ? 1 : 0;
        }
    });
    for (unsigned i = 1; i < 20000; ++i) {
        queue_quietly(part_of(i));
        while (checks < i / 20) {
            std::this_thread::yield();
        }
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0U);
}

// -- the resolution -----------------------------------------------------------------------------

const Bytes kStart = {0x00, 0x00, 0x00, 0x01, 0x27};

// Main profile, as large as the name says.
const Bytes k1912x1088 = {0x4D, 0x00, 0x28, 0xF4, 0x03, 0xC0, 0x11, 0x3F, 0x28};
const Bytes k1280x720 = {0x4D, 0x00, 0x28, 0xF4, 0x02, 0x80, 0x2D, 0xC0};
const Bytes k1000000000x64 = {0x4D, 0x00, 0x28, 0xF4, 0x00, 0x00,
                              0x00, 0x77, 0x35, 0x94, 0x04, 0xC0};
const Bytes k2147483648x64 = {0x4D, 0x00, 0x28, 0xF4, 0x00, 0x00,
                              0x00, 0x10, 0x00, 0x00, 0x00, 0x4C};

Bytes with_start(const Bytes& sps) {
    Bytes part = kStart;
    part.insert(part.end(), sps.begin(), sps.end());
    return part;
}

TEST_F(FrameBuffers, FullHdIsPublished) {
    init_cleared();
    const Bytes part = with_start(k1912x1088);
    EXPECT_EQ(queue(part), "Live stream video resolution changed to 1920x1080\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "1920");
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "1080");
    EXPECT_EQ(View(kLive, kLiveSize).part(0, part.size()), part);
}

TEST_F(FrameBuffers, ResolutionIsReadBeforeTheClear) {
    init();
    EXPECT_EQ(queue(with_start(k1280x720)),
              "Live stream video resolution changed to 1280x720\n"
              "Clear frame shared memory\n");
}

TEST_F(FrameBuffers, RepeatedResolutionIsNotWrittenAgain) {
    init_cleared();
    queue(with_start(k1912x1088));
    root_.remove("/run/vantarel/video_width");
    root_.remove("/run/vantarel/video_height");
    EXPECT_EQ(queue(with_start(k1912x1088)), "");
    EXPECT_FALSE(root_.exists("/run/vantarel/video_width"));
    EXPECT_FALSE(root_.exists("/run/vantarel/video_height"));
}

TEST_F(FrameBuffers, ChangedResolutionReplacesTheFiles) {
    init_cleared();
    queue(with_start(k1912x1088));
    root_.write("/run/vantarel/video_width", "123456789");
    root_.write("/run/vantarel/video_height", "123456789");
    EXPECT_EQ(queue(with_start(k1280x720)), "Live stream video resolution changed to 1280x720\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "1280");
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "720");
}

TEST_F(FrameBuffers, EitherSideAloneIsAChangeAndMapped) {
    init_cleared();
    EXPECT_EQ(queue(with_start({0x4D, 0x00, 0x28, 0xF4, 0x05, 0x00, 0x44, 0xC0})),
              "Live stream video resolution changed to 640x1080\n");
    EXPECT_EQ(queue(with_start(k1912x1088)), "Live stream video resolution changed to 1920x1080\n");
    EXPECT_EQ(queue(with_start({0x4D, 0x00, 0x28, 0xF4, 0x03, 0xC0, 0x2D, 0xFC, 0xA0})),
              "Live stream video resolution changed to 1920x720\n");
}

TEST_F(FrameBuffers, NumberIsCutToNineCharacters) {
    init_cleared();
    EXPECT_EQ(queue(with_start(k1000000000x64)),
              "Live stream video resolution changed to 1000000000x64\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "100000000");
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "64");
    EXPECT_EQ(queue(with_start(k2147483648x64)),
              "Live stream video resolution changed to -2147483648x64\n");
    EXPECT_EQ(root_.read("/run/vantarel/video_width"), "-21474836");
}

TEST_F(FrameBuffers, FilesThatCannotBeWrittenAreSkippedSilently) {
    init_cleared();
    root_.remove("/run/vantarel");
    EXPECT_EQ(queue(with_start(k1280x720)), "Live stream video resolution changed to 1280x720\n");
    EXPECT_FALSE(root_.exists("/run/vantarel"));
}

TEST_F(FrameBuffers, OneFileThatCannotBeWrittenDoesNotKeepTheOtherBack) {
    init_cleared();
    std::filesystem::create_directory(root_.path("/run/vantarel/video_width"));
    queue(with_start(k1280x720));
    EXPECT_EQ(root_.read("/run/vantarel/video_height"), "720");
}

TEST_F(FrameBuffers, NalHeadersThatAreAnSps) {
    for (const int header : {0x07, 0x17, 0x27, 0x47, 0x67, 0xF7}) {
        init_cleared();
        Bytes part = with_start(k1280x720);
        part[4] = static_cast<std::uint8_t>(header);
        EXPECT_EQ(queue(part), "Live stream video resolution changed to 1280x720\n") << header;
    }
}

TEST_F(FrameBuffers, PartsThatDoNotBeginWithAnSps) {
    init_cleared();
    Bytes picture = with_start(k1280x720);
    picture[4] = 0x25;
    EXPECT_EQ(queue(picture), "");
    Bytes short_start = with_start(k1280x720);
    short_start.erase(short_start.begin());  // 00 00 01 27
    EXPECT_EQ(queue(short_start), "");
    for (std::size_t i = 0; i < 4; ++i) {
        Bytes no_start = with_start(k1280x720);
        no_start[i] = 0x02;
        EXPECT_EQ(queue(no_start), "") << i;
    }
    Bytes later = with_start(k1280x720);
    later.insert(later.begin(), 0x00);
    EXPECT_EQ(queue(later), "");
    EXPECT_EQ(queue({0x00, 0x00, 0x00, 0x01}), "");
    EXPECT_EQ(View(kLive, kLiveSize).word(4), 8);  // all were published all the same
}

using FrameBuffersDeathTest = FrameBuffers;

TEST_F(FrameBuffersDeathTest, SpsThatEndsEarlyIsAnAssertion) {
    init_cleared();
    EXPECT_EXIT(queue_quietly(kStart), testing::KilledBySignal(SIGABRT),
                "Assertion `m_nCurrentBit <= m_nLength \\* 8' failed\\.");
    EXPECT_EXIT(queue_quietly(with_start({0x4D, 0x00, 0x28})), testing::KilledBySignal(SIGABRT),
                "Assertion `m_nCurrentBit <= m_nLength \\* 8' failed\\.");
}

}  // namespace
