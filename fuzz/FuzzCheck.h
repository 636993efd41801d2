#pragma once

#include <cstdio>
#include <cstdlib>

// A property every input must keep. A broken one aborts, so that libFuzzer
// (and the corpus replay) report the input as a crash.
#define FUZZ_CHECK(condition)                                                                                  \
    do {                                                                                                       \
        if (!(condition)) {                                                                                    \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                \
            std::abort();                                                                                      \
        }                                                                                                      \
    } while (false)
