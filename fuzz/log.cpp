#include "fuzz/log.h"

#include <stdio.h>
#include <sys/types.h>

#include <utility>

#include "fuzz/fuzz_check.h"

namespace {

constexpr std::size_t kMost = 1 << 20;

std::string recorded;

ssize_t record(void* /*cookie*/, const char* text, std::size_t length) {
    if (recorded.size() < kMost) {
        recorded.append(text, length);
    }
    return static_cast<ssize_t>(length);
}

}  // namespace

void record_log() {
    cookie_io_functions_t functions{};
    functions.write = record;
    FILE* const recorder = fopencookie(nullptr, "w", functions);
    FUZZ_CHECK(recorder != nullptr);
    // The buffer spares the recorder the parts of a line.
    setvbuf(recorder, nullptr, _IOFBF, 65536);
    stderr = recorder;
}

std::string take_log() {
    fflush(stderr);
    return std::exchange(recorded, {});
}
