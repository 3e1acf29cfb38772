// receiver-bench: the data path's speed and memory on this machine.
//
// Prints the figures that the design has goals for, then the usual benchmark table. The ring
// is one of this process's own; only the published resolution is the real one, so it is not for a
// board whose receiver is at work.

#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <cstdio>

#include "decode_bench.h"
#include "packet_scan_bench.h"
#include "reader_path_bench.h"
#include "ring_memory.h"
#include "video/frame_buffers.h"

// Instead of the C library's: memory of the same kind without a name, which a receiver or a test on
// this machine does not share and which ends with the process.
extern "C" int shm_open(const char* name, int, mode_t) {
    return memfd_create(name, 0);
}

int main(int argc, char* argv[]) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    if (frame_buffers_init() != 0) {
        perror("shared memory");
        return 1;
    }
    measure_ring_memory();  // first, while the process holds nothing else
    compare_reader_path_with_copy();
    compare_scans();
    measure_decoder();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
