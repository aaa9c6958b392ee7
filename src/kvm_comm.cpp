#include "kvm_comm.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/common.h"

namespace {

constexpr std::size_t kAddressRoom = 16;
constexpr unsigned long long kPage = 4096;

int mem_fd = -1;

// Copies the text between the first '=' and end (0: the end of the line) to address, if it is short
// enough to be one. stop receives the offset where that text ends.
bool addressAfterEquals(const std::string &line, char end, char *address, std::size_t &stop) {
    std::size_t start = line.find('=');
    if (start == std::string::npos) return false;
    ++start;
    stop = end != '\0' ? line.find(end, start) : line.size();
    if (stop == std::string::npos || stop - start >= kAddressRoom) return false;
    copyText(address, kAddressRoom, line.substr(start, stop - start).c_str());
    return true;
}

std::size_t mappedLength(unsigned long long offset, unsigned int size) {
    return static_cast<std::size_t>(((offset + size - 1) & ~(kPage - 1)) + kPage);
}

}  // namespace

bool get_seq_ip(char *msg, char *seqIp, char *answerIp, int *answerPort) {
    constexpr std::size_t kShortestAnswer = 18;
    std::vector<std::string> lines;
    SplitString(msg, lines, "\n");
    if (lines.size() < 4) return false;

    std::size_t stop = 0;
    if (!addressAfterEquals(lines[1], '\0', seqIp, stop)) return false;
    if (lines[2].size() <= kShortestAnswer) return false;
    if (!addressAfterEquals(lines[2], ':', answerIp, stop)) return false;
    *answerPort = str2int(lines[2].substr(stop + 1));
    return true;
}

std::string GetLocalIp() {
    constexpr char kKey[] = "kEth0Ip";
    FILE *pipe = popen("cat /data/net.ini | awk '/kEth0Ip/'", "r");
    while (pipe == nullptr) {
        sleep(2);
        pipe = popen("cat /data/net.ini | awk '/kEth0Ip/'", "r");
    }

    std::string address = kKey;
    char line[2048];
    while (fgets(line, sizeof line, pipe) != nullptr) {
        const char *key = strstr(line, kKey);
        if (key == nullptr) continue;
        const char *value = key + strlen(kKey);
        if (*value != '\0') ++value;  // the separator, whatever it is
        address.assign(value, strcspn(value, "\n"));
        break;
    }
    pclose(pipe);
    return address;
}

void *hi_sys_io_mmap(unsigned long long phy_addr, unsigned int size) {
    if (mem_fd <= 0) {
        mem_fd = open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
        if (mem_fd < 0) {
            perror("open dev/mem error");
            return nullptr;
        }
    }
    if (size == 0) {
        printf("func: %s size can't be 0.\n", __func__);
        return nullptr;
    }
    const unsigned long long offset = phy_addr % kPage;
    void *page = mmap(nullptr, mappedLength(offset, size), PROT_READ | PROT_WRITE, MAP_SHARED,
                      mem_fd, static_cast<off_t>(phy_addr - offset));
    if (page == MAP_FAILED) {
        perror("mmap error");
        return nullptr;
    }
    return static_cast<char *>(page) + offset;
}

int sample_sys_munmap(void *vir_addr, unsigned int size) {
    const auto offset = reinterpret_cast<std::uintptr_t>(vir_addr) % kPage;
    return munmap(static_cast<char *>(vir_addr) - offset, mappedLength(offset, size));
}

int hi_sys_set_reg(unsigned long long addr, unsigned int value) {
    void *reg = hi_sys_io_mmap(addr, sizeof value);
    if (reg == nullptr) return -1;
    *static_cast<volatile unsigned int *>(reg) = value;
    return sample_sys_munmap(reg, sizeof value);
}

int hi_sys_get_reg(unsigned long long addr, unsigned int *value) {
    if (value == nullptr) return kNullPointer;
    void *reg = hi_sys_io_mmap(addr, sizeof *value);
    if (reg == nullptr) return -1;
    *value = *static_cast<volatile unsigned int *>(reg);
    return sample_sys_munmap(reg, sizeof *value);
}
