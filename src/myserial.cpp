#include "myserial.h"

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

#include "kvm_comm.h"
#include "platform/mpi_sys.h"

namespace {

struct Port {
    const char *device;
    const char *openError;
};

// Deliberate: the last text ends with a line end, which support scripts expect.
constexpr Port kPorts[] = {
    {"/dev/ttyAMA0", "Can't Open Serial UART0 Port"},
    {"/dev/ttyAMA1", "Can't Open Serial UART1 Port"},
    {"/dev/ttyAMA2", "Can't Open Serial UART2 Port"},
    {"/dev/ttyAMA3", "Can't Open Serial UART3 Port\n"},
};

speed_t speedFlag(int speed) {
    switch (speed) {
        case 2400:
            return B2400;
        case 4800:
            return B4800;
        case 38400:
            return B38400;
        case 57600:
            return B57600;
        case 115200:
            return B115200;
        default:
            return B9600;
    }
}

void setParity(termios &options, char parity) {
    switch (parity) {
        case 'O':
            options.c_cflag |= PARENB | PARODD;
            options.c_iflag |= INPCK | ISTRIP;
            break;
        case 'E':
            options.c_cflag |= PARENB;
            options.c_iflag |= INPCK | ISTRIP;
            break;
        default:
            break;
    }
}

constexpr unsigned kUartData = 0x12130000, kUartFlags = 0x12130018;

// Reads the UART's flags until those in mask are as wanted; false when they cannot be read.
bool awaitFlags(unsigned mask, unsigned wanted, unsigned &flags) {
    do {
        if (SAMPLE_SYS_GetReg(kUartFlags, &flags) != 0) return false;
    } while ((flags & mask) != wanted);
    return true;
}

}  // namespace

int MySerial::fd_ = -1;
int MySerial::closedFd_ = -1;

// -1 for a closed port, because its number may belong to a socket by now.
int MySerial::descriptor() {
    return __atomic_load_n(&closedFd_, __ATOMIC_RELAXED) == fd_ ? -1 : fd_;
}

bool MySerial::open_port(ComPort port) {
    if (port >= kUART0 && port < kCOMPortMax) {
        fd_ = open(kPorts[port].device, O_RDWR | O_NOCTTY | O_NONBLOCK);
        __atomic_store_n(&closedFd_, -1, __ATOMIC_RELAXED);
        if (fd_ == -1) {
            perror(kPorts[port].openError);
            return false;
        }
    }
    if (fcntl(descriptor(), F_SETFL, 0) < 0) {
        perror("fcntl failed!");
        return false;
    }
    // Deliberate: a daemon without a terminal gets false here although its port works.
    if (isatty(STDIN_FILENO) == 0) {
        perror("standard input is not a terminal device");
        return false;
    }
    return true;
}

bool MySerial::set_opt(int speed, int bits, int stop, char parity, int vtime, int vmin) {
    const int fd = descriptor();
    termios options;
    if (tcgetattr(fd, &options) != 0) {
        perror("SetupSerial");
        return false;
    }
    options = {};
    options.c_cflag |= CLOCAL | CREAD;
    if (bits == 7) options.c_cflag |= CS7;
    if (bits == 8) options.c_cflag |= CS8;
    setParity(options, parity);
    cfsetispeed(&options, speedFlag(speed));
    cfsetospeed(&options, speedFlag(speed));
    if (stop == 2) options.c_cflag |= CSTOPB;
    options.c_cc[VTIME] = static_cast<cc_t>(vtime & 0xFF);
    options.c_cc[VMIN] = static_cast<cc_t>(vmin & 0xFF);

    tcflush(fd, TCOFLUSH);
    if (tcsetattr(fd, TCSADRAIN, &options) != 0) {
        perror("com set tcsetattr error");
        return false;
    }
    return true;
}

int MySerial::nwrite(const char *data, int length) {
    int written = 0;
    while (written < length) {
        const ssize_t n =
            write(descriptor(), data + written, static_cast<std::size_t>(length - written));
        if (n > 0) written += static_cast<int>(n);
    }
    return written;
}

int MySerial::nread(char *buffer, int length, int timeout) {
    const int fd = descriptor();
    int ready = -1;
    if (fd >= 0 && fd < FD_SETSIZE) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval wait{0, timeout == 0 ? kDefaultWait : timeout};
        ready = select(fd + 1, &readable, nullptr, nullptr, &wait);
    }
    if (ready < 0) {
        puts("select error");
        return -1;
    }
    if (ready == 0) {
        puts("select time out");
        return 0;
    }
    const int n = static_cast<int>(read(fd, buffer, static_cast<std::size_t>(length)));
    if (n <= 0) printf("com read failed %X!\n", static_cast<unsigned>(n));
    return n;
}

void MySerial::discardInput() {
    if (const int fd = descriptor(); fd >= 0) tcflush(fd, TCIFLUSH);
}

void MySerial::close_port() {
    // A signal handler may run this while another thread does; the exchange lets only one close it.
    const int fd = fd_;
    if (fd > 0 && __atomic_exchange_n(&closedFd_, fd, __ATOMIC_RELAXED) != fd) close(fd);
}

int MySerial::uartWrite(char *data, int length) {
    constexpr unsigned kTransmitFull = 0x20, kBusy = 0x08, kTransmitEmpty = 0x80;
    unsigned flags = 0;
    bool ok = awaitFlags(0, 0, flags);
    for (int i = 0; ok && i < length; ++i) {
        if ((flags & kTransmitFull) != 0) ok = awaitFlags(kTransmitFull, 0, flags);
        ok = ok && awaitFlags(kBusy, 0, flags) &&
             SAMPLE_SYS_SetReg(kUartData, static_cast<unsigned char>(data[i])) == 0;
        delaytime_(1);
        ok = ok && awaitFlags(kTransmitEmpty, kTransmitEmpty, flags);
    }
    if (!ok) puts("uart register access failed");
    return 1;
}

int SAMPLE_SYS_GetReg(unsigned int u32Addr, unsigned int *pu32Value) {
    if (pu32Value == nullptr) return kNullPointer;
    void *reg = HI_MPI_SYS_Mmap(u32Addr, sizeof *pu32Value);
    if (reg == nullptr) return -1;
    *pu32Value = *static_cast<volatile unsigned int *>(reg);
    return HI_MPI_SYS_Munmap(reg, sizeof *pu32Value);
}

int SAMPLE_SYS_SetReg(unsigned int u32Addr, unsigned int u32Value) {
    void *reg = HI_MPI_SYS_Mmap(u32Addr, sizeof u32Value);
    if (reg == nullptr) return -1;
    *static_cast<volatile unsigned int *>(reg) = u32Value;
    return HI_MPI_SYS_Munmap(reg, sizeof u32Value);
}
