#include "standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace console {

void holdStandardStreams() {
    // Each takes the lowest free number.
    int fd = 0;
    do fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO) close(fd);
}

bool finishOutput(const char *program) {
    errno = 0;
    const bool failed = fflush(stdout) != 0;
    const int error = errno;
    if (!failed && ferror(stdout) == 0) return true;
    fprintf(stderr, "%s: cannot write to standard output%s%s\n", program, error != 0 ? ": " : "",
            error != 0 ? strerror(error) : "");
    return false;
}

}  // namespace console
