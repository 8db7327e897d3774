/*
 * What the fuzz targets share: the entry points that libFuzzer or the replay program call, the
 * check that ends a run with a finding, and silence.
 */
#ifndef WQEVENTS_FUZZ_FUZZ_TARGET_H
#define WQEVENTS_FUZZ_FUZZ_TARGET_H

#include <wqevents/trace.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace wq::fuzz {

inline void require(bool holds) {
    if (!holds) {
        __builtin_trap();
    }
}

/*
 * Every diagnostic is written, so that its code is exercised too, and all of it is dropped. The
 * streams are exchanged rather than the descriptors, which carry the fuzzer's own reports.
 */
inline void drop_diagnostics() {
    FILE* nowhere = std::fopen("/dev/null", "w");
    require(nowhere != nullptr);
    stdout = nowhere;
    stderr = nowhere;
    tracelogfp = nowhere;
    dumpFp = nowhere;
    dump_packetEMS = 1;
    snmptracemaskEMS = ~0;
}

}  // namespace wq::fuzz

#endif
