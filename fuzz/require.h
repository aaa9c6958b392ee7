// What a target holds to be true.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Ends the run, with what is broken, for libFuzzer to keep the input.
inline void require(bool holds, const char *what) {
    if (holds) return;
    fprintf(stderr, "broken: %s\n", what);
    abort();
}

}  // namespace fuzz
