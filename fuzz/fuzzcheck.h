#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Every fuzz target defines this; libFuzzer, or the corpus replay of the
/// unit tests, calls it with one input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// A broken property aborts, which both libFuzzer and ctest report with the
/// input that caused it.
#define FUZZ_CHECK(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);               \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)
