#include "terminal/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace quillon {

void holdStandardStreams() {
    // From below, for each takes the lowest number that is free.
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) _exit(1);
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

}  // namespace quillon
