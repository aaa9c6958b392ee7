#include "kvm_comm.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>

#include "myserial.h"
#include "sim/host/registers.h"
#include "tests/support/support.h"

namespace {

// Target, answer address and port; for a refused text "refused" and the target.
std::string parse(std::string text) {
    char target[16] = "unset", answer[16] = "unset";
    int port = -5;
    if (!get_seq_ip(text.data(), target, answer, &port)) return std::string("refused ") + target;
    return std::string(target) + " " + answer + " " + std::to_string(port);
}

TEST(GetSeqIp, TakesTargetAndAnswerAddress) {
    EXPECT_EQ(parse("[seq]\n[controlled]=192.168.1.10\nback=192.168.1.20:5000\nusb\n"),
              "192.168.1.10 192.168.1.20 5000");
    EXPECT_EQ(parse("[seq]\na=1.2.3.4\nanswer=192.168.1.20:xyz\nusb"), "1.2.3.4 192.168.1.20 0");
}

TEST(GetSeqIp, RefusesWhatIsMalformed) {
    for (const char *text : {"[seq]\na=1.2.3.4\nback=192.168.1.20:5000\n",  // three lines
                             "[seq]\nno address\nback=192.168.1.20:5000\nusb",
                             "[seq]\na=1.2.3.4\nback 192.168.1.200:5000\nusb",
                             "[seq]\na=1.2.3.4\nback=192.168.1.200 5000\nusb",
                             "[seq]\na=1234567890123456\nback=192.168.1.20:5000\nusb",
                             "[seq]\na=1.2.3.4\nback=1234567890123456:5000\nusb", ""})
        EXPECT_EQ(parse(text).rfind("refused", 0), 0U) << text;
    EXPECT_EQ(parse("[seq]\na=1.2.3.4\nback=1.2.3.4:12345\nusb"), "refused 1.2.3.4") << "too short";
}

TEST(GetLocalIp, ReadsTheAddressOfEth0) {
    const std::pair<const char *, const char *> files[] = {
        {"kMac=1\nkEth0Ip=10.0.0.7\nkEth1Ip=10.0.0.8\n", "10.0.0.7"},
        {"  kEth0Ip:10.0.0.9", "10.0.0.9"},
        {"kEth0Ip\n", ""},
        {"nothing\n", "kEth0Ip"}};
    for (const auto &[text, address] : files) {
        test::writeFile("/data/net.ini", text);
        EXPECT_EQ(GetLocalIp(), address);
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    unlink("/data/net.ini");
    EXPECT_EQ(GetLocalIp(), "kEth0Ip");
}

TEST(DevMem, ReadsAndWritesOneWord) {
    sim::Registers registers;
    EXPECT_EQ(hi_sys_set_reg(0x120F0100, 0x89ABCDEF), 0);
    EXPECT_EQ(registers.get(0x120F0100), 0x89ABCDEFU);
    EXPECT_EQ(registers.get(0x120F00FC), 0U);
    EXPECT_EQ(registers.get(0x120F0104), 0U);
    unsigned value = 0;
    EXPECT_EQ(hi_sys_get_reg(0x120F0100, &value), 0);
    EXPECT_EQ(value, 0x89ABCDEFU);
    EXPECT_EQ(hi_sys_get_reg(0x120F0100, nullptr), static_cast<int>(0xA0028006));
    int synchronous = 0;  // otherwise writes to registers would wait in a cache
    for (int fd = 0; fd < 64; ++fd) {
        char path[16] = "";
        const ssize_t n = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, 15);
        if (n > 0 && std::string(path) == "/dev/mem" && (fcntl(fd, F_GETFL) & O_SYNC) == O_SYNC)
            ++synchronous;
    }
    EXPECT_EQ(synchronous, 1);
}

TEST(DevMem, MapsAcrossPages) {
    sim::Registers registers;
    registers.set(0x12001000, 0x11223344);
    void *mapped = hi_sys_io_mmap(0x12000FFC, 8);
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(mapped) % 4096, 0xFFCU);
    EXPECT_EQ(static_cast<volatile unsigned *>(mapped)[1], 0x11223344U);
    EXPECT_EQ(sample_sys_munmap(mapped, 8), 0);
    EXPECT_EQ(test::printedBy([] { EXPECT_EQ(hi_sys_io_mmap(0x12000000, 0), nullptr); }),
              "func: hi_sys_io_mmap size can't be 0.\n");
}

TEST(DevMem, MissingDeviceFailsAndLeavesTheOutput) {
    unsigned value = 5;
    EXPECT_EQ(test::complainedBy([&] {
                  EXPECT_EQ(hi_sys_get_reg(0x12000000, &value), -1);
                  EXPECT_EQ(SAMPLE_SYS_SetReg(0x12000000, 1), -1);
              }),
              "open dev/mem error: No such file or directory\n"
              "open dev/mem error: No such file or directory\n");
    EXPECT_EQ(SAMPLE_SYS_GetReg(0x12000000, nullptr), static_cast<int>(0xA0028006));
    EXPECT_EQ(value, 5U);
}

}  // namespace
