// The least that a daemon on this board could do for a keyboard record, to measure ours against:
// receive, log the same lines, frame, write, read the acknowledgement. Runs in the daemon's place.

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

int bindPort(unsigned short port) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) return -1;
    return fd;
}

int openUart() {
    const int fd = open("/dev/ttyAMA2", O_RDWR | O_NOCTTY);
    termios options{};
    cfmakeraw(&options);
    cfsetispeed(&options, B115200);
    cfsetospeed(&options, B115200);
    return tcsetattr(fd, TCSANOW, &options) == 0 ? fd : -1;
}

void log(const unsigned char *record, ssize_t count) {
    for (ssize_t i = 0; i < count; ++i) printf("0x%x ", record[i]);
    printf("\n");
    printf("version %d, rel_enable %d\n", 1, 0);
}

void forward(int uart, const unsigned char *record) {
    unsigned char frame[14] = {0x57, 0xAB, 0, 2, 8, record[3], 0, record[5]};
    for (int i = 0; i < 13; ++i) frame[13] = static_cast<unsigned char>(frame[13] + frame[i]);
    if (write(uart, frame, sizeof frame) != sizeof frame) perror("write");
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(uart, &readable);
    timeval wait{0, 60000};
    char reply[64];
    if (select(uart + 1, &readable, nullptr, nullptr, &wait) > 0 && read(uart, reply, 7) <= 0)
        perror("read");
}

}  // namespace

int main() {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const int uart = openUart(), records = bindPort(80), operators = bindPort(41302);
    if (uart < 0 || records < 0 || operators < 0) return 1;
    puts("[udpServerProc]-530: starting udp server at port: 80");
    unsigned char record[256];
    for (;;) {
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t n =
            recvfrom(records, record, sizeof record, 0, reinterpret_cast<sockaddr *>(&from), &size);
        if (n != 11) continue;
        log(record, n);
        forward(uart, record);
    }
}
