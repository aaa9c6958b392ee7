#include "myserial.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include "sim/host/registers.h"
#include "tests/support/on_line.h"

// Replaces the library's function, and records what the daemon discards.
static std::vector<std::pair<int, int>> flushes;
extern "C" int tcflush(int fd, int queue) noexcept {
    flushes.emplace_back(fd, queue);
    return ioctl(fd, TCFLSH, queue);
}

// Records the options, because a pseudo-terminal keeps neither character size nor parity.
static termios asked;
extern "C" int tcsetattr(int fd, int when, const termios *options) noexcept {
    asked = *options;
    static const auto real =
        reinterpret_cast<int (*)(int, int, const termios *)>(dlsym(RTLD_NEXT, "tcsetattr"));
    return real(fd, when, options);
}

namespace {

using test::complainedBy;
using test::printedBy;

using Serial = test::OnLine;

TEST_F(Serial, OpenIsFalseButUsableWithoutATerminal) {
    ports_.attach(3, device_);
    const std::string said =
        complainedBy([] { EXPECT_FALSE(MySerial::open_port(MySerial::KUART3)); });
    EXPECT_EQ(said.rfind("standard input is not a terminal device: ", 0), 0U) << said;
    EXPECT_TRUE(MySerial::set_opt(115200, 8, 1, 'N', 0, 0));
    EXPECT_EQ(MySerial::nwrite("ab", 2), 2);
    EXPECT_EQ(device_.waitFor(2), (test::Bytes{'a', 'b'}));
}

TEST_F(Serial, OpenIsTrueOnATerminalAndBlocking) {
    const int terminal = open("/quillon-board/pts/ptmx", O_RDWR);
    ASSERT_GE(terminal, 0);
    const int input = dup(STDIN_FILENO);
    dup2(terminal, STDIN_FILENO);
    EXPECT_TRUE(MySerial::open_port(MySerial::kUART0));
    EXPECT_EQ(fcntl(MySerial::fd_, F_GETFL) & O_NONBLOCK, 0);
    dup2(input, STDIN_FILENO);
}

TEST_F(Serial, SpeedsAreTheSixThatItKnows) {
    for (const int baud : {2400, 4800, 9600, 38400, 57600, 115200}) {
        EXPECT_TRUE(MySerial::set_opt(baud, 8, 1, 'N', 10, 1));
        EXPECT_EQ(ports_.hostBaud(3), baud);
    }
    EXPECT_TRUE(MySerial::set_opt(19200, 8, 1, 'N', 10, 1));
    EXPECT_EQ(ports_.hostBaud(3), 9600);
}

TEST_F(Serial, OptionsAreRaw) {
    const tcflag_t size[] = {CS5, CS7, CS8}, checked = INPCK | ISTRIP;
    const std::pair<char, tcflag_t> parities[] = {{'N', 0}, {'E', PARENB}, {'O', PARENB | PARODD}};
    for (const int bits : {6, 7, 8})
        for (const auto &[letter, parity] : parities) {
            ASSERT_TRUE(MySerial::set_opt(9600, bits, bits == 8 ? 2 : 1, letter, 0x10A, 0x101));
            EXPECT_EQ(asked.c_lflag | asked.c_oflag, 0U);
            EXPECT_EQ(asked.c_iflag, letter == 'N' ? 0 : checked);
            EXPECT_EQ(asked.c_cflag & ~static_cast<tcflag_t>(CBAUD),
                      CLOCAL | CREAD | size[bits - 6] | parity | (bits == 8 ? CSTOPB : 0));
            EXPECT_EQ(asked.c_cc[VTIME], 0x0A);
            EXPECT_EQ(asked.c_cc[VMIN], 0x01);
        }
}

TEST_F(Serial, OpenThrowsAwayWhatWasNotSentAndDiscardWhatWasNotRead) {
    flushes.clear();
    ASSERT_TRUE(MySerial::set_opt(9600, 8, 1, 'N', 0, 0));
    MySerial::discardInput();
    EXPECT_EQ(flushes, (decltype(flushes){{MySerial::fd_, TCOFLUSH}, {MySerial::fd_, TCIFLUSH}}));
    MySerial::close_port();
    MySerial::discardInput();
    EXPECT_EQ(flushes.size(), 2U) << "the number may be a socket's by now";
}

TEST_F(Serial, ReadWaitsForItsTimeAndTakesOneAnswer) {
    ports_.attach(3, device_);
    device_.answer('?', {1, 2, 3});
    char buffer[16] = {};
    EXPECT_EQ(MySerial::nwrite("?", 1), 1);
    EXPECT_EQ(MySerial::nread(buffer, sizeof buffer, 2000000), 3);
    EXPECT_EQ(buffer[2], 3);

    for (const auto &[asked, least] : {std::pair{0, 60}, std::pair{120000, 120}}) {
        const auto start = sim::Clock::now();
        EXPECT_EQ(printedBy([&, wait = asked] { MySerial::nread(buffer, 1, wait); }),
                  "select time out\n");
        EXPECT_GE(sim::Clock::now() - start, std::chrono::milliseconds(least));
    }
}

TEST_F(Serial, ClosedPortNeverTouchesWhoGotItsNumber) {
    const int number = MySerial::fd_;
    complainedBy([] { MySerial::open_port(MySerial::kCOMPortMax); });
    EXPECT_EQ(MySerial::fd_, number) << "no port opens nothing";
    MySerial::close_port();
    EXPECT_EQ(MySerial::fd_, number);

    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const int far = fcntl(pair[1], F_DUPFD, number + 100);
    ASSERT_EQ(dup2(pair[0], number), number);
    ASSERT_EQ(write(far, "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(MySerial::nread(&byte, 1, 0), -1); }), "select error\n");
    EXPECT_EQ(complainedBy([] {
                  EXPECT_FALSE(MySerial::set_opt(9600, 8, 1, 'N', 0, 0));
                  EXPECT_FALSE(MySerial::open_port(MySerial::kCOMPortMax));
              }),
              "SetupSerial: Bad file descriptor\nfcntl failed!: Bad file descriptor\n");
    MySerial::close_port();
    EXPECT_EQ(read(number, &byte, 1), 1) << "the socket was closed or read";
}

TEST(MissingSerial, EachPortHasItsMessage) {
    const char *expected[] = {"Can't Open Serial UART0 Port: ", "Can't Open Serial UART1 Port: ",
                              "Can't Open Serial UART2 Port: ", "Can't Open Serial UART3 Port\n: "};
    for (int port = 0; port < 4; ++port) {
        EXPECT_EQ(complainedBy([&] {
                      EXPECT_FALSE(MySerial::open_port(static_cast<MySerial::ComPort>(port)));
                  }),
                  std::string(expected[port]) + "No such file or directory\n");
        EXPECT_EQ(MySerial::fd_, -1);
    }
    EXPECT_EQ(complainedBy([] { EXPECT_FALSE(MySerial::open_port(MySerial::kCOMPortMax)); }),
              "fcntl failed!: Bad file descriptor\n");
}

TEST(UartWrite, PutsTheLastByteIntoTheDataRegister) {
    sim::Registers registers;  // flags of an idle UART
    char data[] = {'a', '\xF0'};
    EXPECT_EQ(MySerial::uartWrite(data, 0), 1);
    EXPECT_EQ(registers.get(0x12130000), 0U);
    EXPECT_EQ(MySerial::uartWrite(data, 2), 1);
    EXPECT_EQ(registers.get(0x12130000), 0xF0U);
    EXPECT_EQ(test::run("grep -c /dev/mem /proc/" + std::to_string(getpid()) + "/maps").said, "0\n")
        << "a mapping was left behind";
}

}  // namespace
