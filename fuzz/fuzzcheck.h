#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Every fuzz target defines this; libFuzzer, or the corpus replay of the
/// unit tests, calls it with one input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
/// A target may define this for set-up before the first input.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

/// A broken property aborts, which both libFuzzer and ctest report with the
/// input that caused it.
#define FUZZ_CHECK(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);               \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
