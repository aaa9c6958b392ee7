// A viewer that says what a test wants, byte by byte, and reads what comes.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <map>
#include <string>
#include <vector>

#include "gateway/picture/status_picture.h"
#include "gateway/rfb/handshake.h"
#include "tests/support/support.h"

namespace test {

class RawViewer {
  public:
    using Bytes = gateway::rfb::Bytes;

    /// path: of a unix socket, or "HOST:PORT".
    explicit RawViewer(const std::string &path) {
        const std::size_t colon = path.find(':');
        if (colon == std::string::npos) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            path.copy(address.sun_path, sizeof address.sun_path - 1);
            fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            ::connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        } else {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(path.substr(colon + 1))));
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            ::connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address);
        }
        const timeval patience{10, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~RawViewer() { close(); }
    RawViewer(const RawViewer &) = delete;
    RawViewer &operator=(const RawViewer &) = delete;

    void close() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

    /// False when the gateway does not let it in without a password.
    bool enter() {
        if (get(12) != "RFB 003.008\n") return false;
        say("RFB 003.008\n");
        if (get(2) != "\x01\x01") return false;
        say("\x01");
        if (get(4) != std::string(4, '\0')) return false;
        say("\x01");
        return screen();
    }
    /// Reads the size and the name of the screen.
    bool screen() {
        const std::string head = get(24);
        if (head.size() != 24) return false;
        width_ = number(head, 0, 2);
        height_ = number(head, 2, 2);
        name_ = get(number(head, 20, 4));
        picture_ = {width_, height_, std::vector<gateway::Pixel>(std::size_t{width_} * height_)};
        return !name_.empty();
    }

    void say(const std::string &bytes) const {
        [[maybe_unused]] const auto n = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }
    void say(const Bytes &bytes) const { say(std::string(bytes.begin(), bytes.end())); }
    /// Bytes that come; fewer when the gateway closes, or nothing comes in 10 s.
    std::string get(std::size_t count) const {
        std::string bytes(count, '\0');
        std::size_t size = 0;
        while (size < count) {
            const ssize_t n = recv(fd_, bytes.data() + size, count - size, 0);
            if (n <= 0) break;
            size += static_cast<std::size_t>(n);
        }
        bytes.resize(size);
        return bytes;
    }
    bool closed() const { return get(1).empty(); }

    void encodings(const std::vector<std::int32_t> &wanted) const {
        Bytes bytes{2, 0};
        gateway::rfb::append16(bytes, static_cast<unsigned>(wanted.size()));
        for (const std::int32_t one : wanted)
            gateway::rfb::append32(bytes, static_cast<std::uint32_t>(one));
        say(bytes);
    }
    void key(std::uint32_t keysym, bool down) const {
        Bytes bytes{4, static_cast<std::uint8_t>(down ? 1 : 0), 0, 0};
        gateway::rfb::append32(bytes, keysym);
        say(bytes);
    }
    void tap(std::uint32_t keysym) const {
        key(keysym, true);
        key(keysym, false);
    }
    void pointer(unsigned buttons, unsigned x, unsigned y) const {
        Bytes bytes{5, static_cast<std::uint8_t>(buttons)};
        gateway::rfb::append16(bytes, x);
        gateway::rfb::append16(bytes, y);
        say(bytes);
    }
    void request(bool incremental) const {
        Bytes bytes{3, static_cast<std::uint8_t>(incremental ? 1 : 0)};
        for (const unsigned side : {0U, 0U, width_, height_}) gateway::rfb::append16(bytes, side);
        say(bytes);
    }

    /// Reads one message into the picture, and what() of pseudo-encodings; answers fences. Pixels
    /// are Raw, and of Tight jpeg() alone is kept. False when the connection ends.
    bool read() {
        const std::string type = get(1);
        if (type.empty()) return false;
        if (type[0] == '\xf8') {
            const std::string head = get(8), payload = get(number(head, 7, 1));
            if (answersFences) say("\xf8" + std::string(7, '\0') + head[7] + payload);
            return true;
        }
        if (type[0] != 0) return false;
        const std::string head = get(3);
        for (unsigned left = number(head, 1, 2); left > 0; --left)
            if (!readRectangle()) return false;
        return true;
    }
    /// Reads until its picture is as wanted, for 10 s at most.
    bool until(const std::function<bool()> &wanted) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < end) {
            if (wanted()) return true;
            request(true);
            if (!read()) return false;
        }
        return false;
    }

    /// The last JPEG in Tight.
    const std::string &jpeg() const { return jpeg_; }
    const gateway::Image &picture() const { return picture_; }
    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    const std::string &name() const { return name_; }
    /// The last x of each pseudo-encoding's rectangle, or the byte in it.
    const std::map<std::int32_t, unsigned> &told() const { return told_; }

    bool answersFences = true;

  private:
    static unsigned number(const std::string &bytes, std::size_t at, std::size_t size) {
        unsigned value = 0;
        for (std::size_t i = at; i < at + size && i < bytes.size(); ++i)
            value = value << 8U | static_cast<unsigned char>(bytes[i]);
        return value;
    }

    bool readRectangle() {
        const std::string head = get(12);
        if (head.size() != 12) return false;
        const unsigned x = number(head, 0, 2), y = number(head, 2, 2), width = number(head, 4, 2),
                       height = number(head, 6, 2);
        const auto encoding = static_cast<std::int32_t>(number(head, 8, 4));
        if (encoding < 0) {
            told_[encoding] = x;
            if (encoding == gateway::rfb::kLedState) told_[encoding] = number(get(1), 0, 1);
            if (encoding == gateway::rfb::kExtendedDesktopSize) get(20);
            if (encoding == gateway::rfb::kExtendedDesktopSize ||
                encoding == gateway::rfb::kDesktopSize) {
                width_ = width;
                height_ = height;
                picture_ = {width, height,
                            std::vector<gateway::Pixel>(std::size_t{width} * height)};
            }
            return true;
        }
        if (encoding == gateway::rfb::kTight) return readTight(width, height);
        const std::string pixels = get(std::size_t{4} * width * height);
        if (pixels.size() != std::size_t{4} * width * height) return false;
        for (unsigned row = 0; row < height; ++row)
            memcpy(picture_.pixels.data() + std::size_t{y + row} * width_ + x,
                   pixels.data() + std::size_t{4} * row * width, std::size_t{4} * width);
        return true;
    }

    // The kinds of data that the gateway sends; see its TightEncoder.
    bool readTight(unsigned width, unsigned height) {
        const std::string control = get(1);
        if (control.empty()) return false;
        const unsigned kind = static_cast<unsigned char>(control[0]) >> 4U;
        constexpr unsigned kFill = 8, kJpeg = 9, kFilter = 4;
        if (kind == kFill) return get(3).size() == 3;
        std::size_t size = std::size_t{3} * width * height;
        if (kind == kFilter) {
            const unsigned colours = number(get(2), 1, 1) + 1;
            get(3 * colours);
            size = std::size_t{colours == 2 ? (width + 7) / 8 : width} * height;
        }
        if (kind == kJpeg || size >= 12) {
            size = 0;
            for (unsigned shift = 0, byte = 0x80; (byte & 0x80U) != 0 && shift < 22; shift += 7)
                size |= std::size_t{(byte = number(get(1), 0, 1)) & (shift < 14 ? 0x7FU : 0xFFU)}
                        << shift;
        }
        const std::string data = get(size);
        if (kind == kJpeg) jpeg_ = data;
        return data.size() == size;
    }

    int fd_ = -1;
    std::string jpeg_;
    unsigned width_ = 0, height_ = 0;
    std::string name_;
    gateway::Image picture_;
    std::map<std::int32_t, unsigned> told_;
};

}  // namespace test
