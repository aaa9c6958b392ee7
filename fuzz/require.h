// The check of the fuzz targets.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Unless holds is true, prints what is broken and aborts; libFuzzer then keeps the input.
inline void require(bool holds, const char *what) {
    if (holds) return;
    fprintf(stderr, "broken: %s\n", what);
    abort();
}

}  // namespace fuzz
