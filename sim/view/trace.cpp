#include "sim/view/trace.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

namespace sim {
namespace {

// pcapng: blocks of 32-bit words, the total length at both ends, options with padding.
constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A, kInterfaceBlock = 1, kPacketBlock = 6;
constexpr std::uint16_t kEthernet = 1, kUser0 = 147;
constexpr std::uint16_t kEnd = 0, kFlags = 2, kName = 2, kResolution = 9;  // options
constexpr std::uint32_t kNoDirection = 0, kInbound = 1, kOutbound = 2;
constexpr std::uint8_t kNanoseconds = 9;

class Block {
  public:
    explicit Block(std::uint32_t type) {
        add(type);
        add(std::uint32_t{0});  // the length, once it is known
    }

    template <class Number>
    void add(Number number) {
        add(&number, sizeof number);
    }
    void add(const void *bytes, std::size_t size) {
        const auto *from = static_cast<const std::uint8_t *>(bytes);
        bytes_.insert(bytes_.end(), from, from + size);
    }
    void addPadded(const void *bytes, std::size_t size) {
        add(bytes, size);
        bytes_.resize((bytes_.size() + 3) / 4 * 4);
    }
    void option(std::uint16_t code, const void *bytes, std::size_t size) {
        add(code);
        add(static_cast<std::uint16_t>(size));
        addPadded(bytes, size);
    }

    const Bytes &close() {
        const auto size = static_cast<std::uint32_t>(bytes_.size() + sizeof(std::uint32_t));
        add(size);
        memcpy(bytes_.data() + sizeof(std::uint32_t), &size, sizeof size);
        return bytes_;
    }

  private:
    Bytes bytes_;
};

bool writeBlock(FILE *file, Block &block) {
    const Bytes &bytes = block.close();
    return fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

bool writeSection(FILE *file) {
    Block block(kSectionBlock);
    block.add(std::uint32_t{0x1A2B3C4D});
    block.add(std::uint16_t{1});
    block.add(std::uint16_t{0});
    block.add(std::int64_t{-1});
    return writeBlock(file, block);
}

bool writeInterface(FILE *file, std::uint16_t linkType, const std::string &name) {
    Block block(kInterfaceBlock);
    block.add(linkType);
    block.add(std::uint16_t{0});
    block.add(std::uint32_t{0});  // no limit to a packet's length
    block.option(kName, name.data(), name.size());
    block.option(kResolution, &kNanoseconds, sizeof kNanoseconds);
    block.option(kEnd, nullptr, 0);
    return writeBlock(file, block);
}

std::uint64_t now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000U +
           static_cast<std::uint64_t>(time.tv_nsec);
}

bool isDatagram(const std::uint8_t *bytes, ssize_t size) {
    constexpr ssize_t kHeads = 14 + 20;  // Ethernet and IPv4
    return size >= kHeads && bytes[12] == 0x08 && bytes[13] == 0x00 && bytes[23] == IPPROTO_UDP;
}

// All datagrams stay on the private host: each is taken once, as it leaves.
int openCapture() {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    if (fd < 0)
        throw std::runtime_error(std::string("cannot trace the network: ") + strerror(errno));
    return fd;
}

}  // namespace

FILE *openTrace(const std::string &path) {
    FILE *file = fopen(path.c_str(), "we");
    if (file == nullptr) throw std::runtime_error("cannot write " + path + ": " + strerror(errno));
    return file;
}

Trace::Trace(FILE *file) : file_(file), socket_(openCapture()), wake_(eventfd(0, EFD_CLOEXEC)) {
    bool written = writeSection(file_) && writeInterface(file_, kEthernet, "network");
    for (int i = 0; i < SerialPorts::kCount; ++i)
        written = written && writeInterface(file_, kUser0, "ttyAMA" + std::to_string(i));
    check(written && fflush(file_) == 0);
    thread_ = std::thread([this] { capture(); });
}

void Trace::check(bool written) {
    if (!written && trouble_.empty())
        trouble_ = std::string("cannot write to the trace: ") + strerror(errno);
}

Trace::~Trace() {
    finish();
}

std::string Trace::finish() {
    if (file_ == nullptr) return trouble_;
    eventfd_write(wake_, 1);
    thread_.join();
    for (unsigned port = 0; port < SerialPorts::kCount; ++port)
        for (const bool toDevice : {false, true})
            if (const Bytes &rest = splitters_[port][toDevice].rest(); !rest.empty())
                write(1 + port, toDevice ? kOutbound : kInbound, rest.data(), rest.size());
    close(socket_);
    close(wake_);
    const bool closed = fclose(file_) == 0;
    file_ = nullptr;
    check(closed);
    return trouble_;
}

void Trace::write(unsigned interface, std::uint32_t direction, const std::uint8_t *bytes,
                  std::size_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!trouble_.empty()) return;
    const std::uint64_t time = now();
    Block block(kPacketBlock);
    block.add(static_cast<std::uint32_t>(interface));
    block.add(static_cast<std::uint32_t>(time >> 32));
    block.add(static_cast<std::uint32_t>(time));
    block.add(static_cast<std::uint32_t>(size));
    block.add(static_cast<std::uint32_t>(size));
    block.addPadded(bytes, size);
    block.option(kFlags, &direction, sizeof direction);
    block.option(kEnd, nullptr, 0);
    // Flushed, so that the file is complete at any time, even if the board is killed.
    const bool written = writeBlock(file_, block);
    check(fflush(file_) == 0 && written);
}

void Trace::take(const Traffic &traffic) {
    FrameSplitter &splitter = splitters_[traffic.port][traffic.toDevice ? 1 : 0];
    for (const Bytes &frame : splitter.take(traffic.bytes))
        write(1 + static_cast<unsigned>(traffic.port), traffic.toDevice ? kOutbound : kInbound,
              frame.data(), frame.size());
}

void Trace::capture() {
    std::uint8_t bytes[65536];
    pollfd fds[] = {{socket_, POLLIN, 0}, {wake_, POLLIN, 0}};
    for (;;) {
        if (poll(fds, 2, -1) < 0 && errno != EINTR) return;
        sockaddr_ll from{};
        socklen_t length = sizeof from;
        const ssize_t n = recvfrom(socket_, bytes, sizeof bytes, MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr *>(&from), &length);
        if (from.sll_pkttype == PACKET_OUTGOING && isDatagram(bytes, n))
            write(0, kNoDirection, bytes, static_cast<std::size_t>(n));
        if (n <= 0 && fds[1].revents != 0) return;  // nothing is left to write
    }
}

}  // namespace sim
