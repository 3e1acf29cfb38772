// receiver-bench: the data path's speed and memory on this machine.
//
// Prints the three figures that the design has goals for, then the usual benchmark table. It works
// in the real shared-memory objects and result files, and removes the objects at the end: not
// beside a running receiver.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "app/system_paths.h"
#include "packet_scan_bench.h"
#include "reader_path_bench.h"
#include "ring_memory.h"
#include "video/frame_buffers.h"

int main(int argc, char* argv[]) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    const int existing = shm_open(kFrameBufferName, O_RDWR, 0);
    if (existing >= 0) {
        close(existing);
        fprintf(stderr, "%s exists: is a receiver running?\n", kFrameBufferName);
        return 1;
    }
    if (frame_buffers_init() != 0) {
        perror("shared memory");
        return 1;
    }
    measure_ring_memory();  // first, while the process holds nothing else
    compare_reader_path_with_copy();
    compare_scans();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    shm_unlink(kFrameBufferName);
    shm_unlink(kTranscodingBufferName);
    return 0;
}
