// The SPS reader: any bytes, against a second reader.
#include "fuzz/fuzz_check.h"
#include "fuzz/input.h"
#include "fuzz/receiver_end.h"
#include "fuzz/sps_reference.h"
#include "video/h264_sps.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ExactBlock sps({data, size});
    std::optional<PictureSize> measured = PictureSize{0, 0};
    try {
        h264_sps_get_size(sps.data(), sps.size(), &measured->width, &measured->height);
    } catch (const ReceiverEnd& end) {
        FUZZ_CHECK(end.why == "m_nCurrentBit <= m_nLength * 8");
        FUZZ_CHECK(*measured == (PictureSize{0, 0}));
        measured.reset();
    }
    FUZZ_CHECK(measured == reference_picture_size({data, size}));
    return 0;
}
