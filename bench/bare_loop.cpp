// The least work that a daemon on this board can do for a record, for comparison with quillon:
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

void scale(const unsigned char *pixels, unsigned size, unsigned char *steps) {
    const unsigned at = (pixels[0] | pixels[1] << 8) * 4095U / size;
    steps[0] = static_cast<unsigned char>(at & 0xFF);
    steps[1] = static_cast<unsigned char>(at >> 8);
}

// Returns the length of the frame without its checksum.
std::size_t frameKeyboard(const unsigned char *record, unsigned char *frame) {
    const unsigned char head[] = {0x57, 0xAB, 0, 2, 8, record[3], 0, record[5]};
    memcpy(frame, head, sizeof head);
    return 13;
}

std::size_t framePosition(const unsigned char *record, unsigned char *frame) {
    const unsigned char head[] = {0x57, 0xAB, 0, 4, 7, 2, record[4]};
    memcpy(frame, head, sizeof head);
    scale(record + 5, 1920, frame + 7);
    scale(record + 7, 1080, frame + 9);
    frame[11] = record[9];
    return 12;
}

void forward(int uart, const unsigned char *record, ssize_t count) {
    unsigned char frame[14] = {};
    const std::size_t length =
        count == 11 ? frameKeyboard(record, frame) : framePosition(record, frame);
    for (std::size_t i = 0; i < length; ++i)
        frame[length] = static_cast<unsigned char>(frame[length] + frame[i]);
    if (write(uart, frame, length + 1) < 0) perror("write");
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
        if (n != 11 && n != 10) continue;
        log(record, n);
        forward(uart, record, n);
    }
}
