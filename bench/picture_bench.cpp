// quillon-picture-bench: what pictures cost the gateway, and how long a change takes to a viewer.
// Written for the page docs/performance.md.

#include <openssl/ssl.h>

#include <cmath>

#include "bench/gateway_stage.h"
#include "gateway/picture/tile_cache.h"
#include "sim/host/picture_socket.h"
#include "sim/host/private_host.h"
#include "sim/pc/virtual_pc.h"

namespace {

using namespace bench;
using gateway::rfb::Bytes;
using gateway::rfb::Pixel;

constexpr std::size_t kJpegSize = 60000;

// Something like a photo: soft shapes with noise over them.
std::vector<Pixel> photo(unsigned width, unsigned height) {
    std::vector<Pixel> pixels;
    std::uint32_t noise = 1;
    for (unsigned y = 0; y < height; ++y)
        for (unsigned x = 0; x < width; ++x) {
            noise = noise * 1664525U + 1013904223U;
            const auto wave = [&](double period) {
                return static_cast<unsigned>(110 + 100 * std::sin((x + 2 * y) / period) +
                                             (noise >> 28U));
            };
            pixels.push_back(wave(90) << 16U | wave(130) << 8U | wave(70));
        }
    return pixels;
}

Bytes jpegOf(unsigned width, unsigned height, int level) {
    const auto pixels = photo(width, height);
    gateway::rfb::JpegEncoder encoder;
    return encoder.encode({pixels.data(), width, width, height}, level);
}

// Made as long as all the others by comments in its header.
Bytes streamed() {
    Bytes jpeg = jpegOf(1280, 720, 3);
    if (jpeg.size() > kJpegSize) throw std::runtime_error("the JPEG is too large");
    while (jpeg.size() + 4 < kJpegSize) {
        const std::size_t size = std::min<std::size_t>(kJpegSize - jpeg.size() - 2, 65000);
        Bytes comment{0xFF, 0xFE};
        gateway::rfb::append16(comment, static_cast<unsigned>(size));
        comment.resize(size + 2);
        jpeg.insert(jpeg.begin() + 2, comment.begin(), comment.end());
    }
    return jpeg;
}

int listenAt(std::uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, 200) != 0)
        throw std::runtime_error("cannot listen");
    return fd;
}

void sendAll(int fd, const std::string &bytes) {
    if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
        throw std::runtime_error("the gateway closed a connection");
}

// Ten pictures a second to each of its connections, one after the other.
class Streamer {
  public:
    explicit Streamer(unsigned count) : listener_(listenAt(8090)) {
        thread_ = std::thread([this, count] {
            std::vector<int> lines;
            while (lines.size() < count && !ending_) {
                pollfd readable{listener_, POLLIN, 0};
                if (poll(&readable, 1, 100) != 1) continue;
                lines.push_back(accept(listener_, nullptr, nullptr));
                char request[2000];
                [[maybe_unused]] const auto n = recv(lines.back(), request, sizeof request, 0);
                sendAll(lines.back(),
                        "HTTP/1.0 200 OK\r\n"
                        "Content-Type: multipart/x-mixed-replace;boundary=b\r\n\r\n");
            }
            const Bytes jpeg = streamed();
            const std::string part = "--b\r\nContent-Length: " + std::to_string(jpeg.size()) +
                                     "\r\n\r\n" + std::string(jpeg.begin(), jpeg.end()) + "\r\n";
            for (auto due = Clock::now(); !ending_;)
                for (const int line : lines) {
                    std::this_thread::sleep_until(due);
                    due += std::chrono::duration_cast<Clock::duration>(100ms) / lines.size();
                    if (!ending_) send(line, part.data(), part.size(), MSG_NOSIGNAL);
                }
            for (const int line : lines) close(line);
        });
    }
    ~Streamer() {
        ending_ = true;
        thread_.join();
        close(listener_);
    }
    Streamer(const Streamer &) = delete;
    Streamer &operator=(const Streamer &) = delete;

  private:
    const int listener_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

constexpr std::uint16_t kTlsPort = 6000;

// A viewer on TCP with VeNCrypt's X509Plain.
class TlsViewer : public Viewer {
  public:
    explicit TlsViewer(std::uint16_t port) : Viewer(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot reach the gateway");
        read(12);
        sendAll(fd(), "RFB 003.008\n");
        read(2);
        sendAll(fd(), "\x13");
        read(2);
        sendAll(fd(), std::string("\0\2", 2));
        read(1 + 1 + 4);
        sendAll(fd(), std::string("\0\0\1\6", 4));
        read(1);
        SSL_set_fd(tls_.get(), fd());
        if (SSL_connect(tls_.get()) != 1) throw std::runtime_error("no TLS");
        say(std::string("\0\0\0\6\0\0\0\6viewersecret\x01", 21));
        want();
        fcntl(fd(), F_SETFL, O_NONBLOCK);
    }

  private:
    void read(std::size_t count) const {
        char bytes[20];
        if (recv(fd(), bytes, count, MSG_WAITALL) != static_cast<ssize_t>(count))
            throw std::runtime_error("the gateway does not take a viewer");
    }
    void say(const std::string &bytes) const override {
        if (SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size())) <= 0)
            throw std::runtime_error("the gateway closed a connection");
    }
    ssize_t take(char *bytes, std::size_t most) const override {
        return SSL_read(tls_.get(), bytes, static_cast<int>(most));
    }

    static SSL_CTX *context() {
        static SSL_CTX *const made = SSL_CTX_new(TLS_client_method());
        return made;
    }
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls_{SSL_new(context()), SSL_free};
};

// From a viewer's send to the record at the endpoint.
std::vector<double> recordTimes(const StandIns &endpoints, const Viewer &viewer, int keys) {
    std::vector<double> times;
    for (int i = 0; i < keys; ++i) {
        // Out of step with pictures, and when nothing is sent again.
        std::this_thread::sleep_for(std::chrono::milliseconds(300 + i * 7 % 50));
        const unsigned before = endpoints.records();
        const auto begin = Clock::now();
        viewer.key(0x1E, i % 2 == 0);
        while (endpoints.records() == before) {
            std::this_thread::sleep_for(1ms);
            if (Clock::now() - begin > 5s) throw std::runtime_error("a key did not arrive");
        }
        times.push_back(milliseconds(endpoints.newestRecord() - begin));
    }
    return times;
}

// JPEGs that pass through, beside a person who types.
void measureStreams(unsigned count, bool tls, int keys) {
    const StandIns standIns(count + 1);
    std::vector<std::string> addresses;
    for (unsigned i = 0; i <= count; ++i) addresses.push_back(standIns.address(i));
    const Streamer streamer(count);
    const std::string general =
        "certificate = \"/data/cert.pem\"\nkey = \"/data/key.pem\"\nuser = \"viewer\"\n"
        "password_file = \"/data/password\"\n";
    const Gateway gateway(addresses, tls ? general : "", [&](std::size_t i) {
        if (i == count) return std::string();
        return "picture = \"mjpeg:http://127.0.0.1:8090/\"\n" +
               (tls ? "listen = \"127.0.0.1:" + std::to_string(kTlsPort + i) + "\"\n" : "");
    });
    Audience audience, typists;
    for (unsigned i = 0; i < count; ++i)
        if (tls)
            audience.add(std::make_unique<TlsViewer>(static_cast<std::uint16_t>(kTlsPort + i)));
        else
            audience.add("e" + std::to_string(i));
    audience.start();
    typists.add("e" + std::to_string(count));
    typists.start();
    std::this_thread::sleep_for(5s);
    const double before = gateway.cpuSeconds();
    const std::size_t bytes = audience.bytes();
    const auto begin = Clock::now();
    const auto times = recordTimes(standIns, *typists.viewers().front(), keys);
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    printf(
        "%3u streams, %-8s %6.1f pictures/s each %8.1f %% of a core %8ld KiB   "
        "a key to its record p50 %.2f ms, p99 %.2f ms\n",
        count, tls ? "TLS" : "no TLS",
        static_cast<double>(audience.bytes() - bytes) / kJpegSize / seconds / count,
        100 * (gateway.cpuSeconds() - before) / seconds, gateway.residentKiB(),
        percentile(times, 0.5), percentile(times, 0.99));
}

// Of whole pictures of 1920x1080 that change everywhere.
void measureEncoding() {
    constexpr unsigned kWidth = 1920, kHeight = 1080;
    const gateway::rfb::Jpeg jpegs[] = {gateway::rfb::checkedJpeg(jpegOf(kWidth, kHeight, 6)),
                                        gateway::rfb::checkedJpeg(jpegOf(kWidth, kHeight, 5))};
    gateway::rfb::TightEncoder encoder;
    gateway::Surface surface(kWidth, kHeight);
    for (const int quality : {6, gateway::rfb::TightEncoder::kLossless}) {
        constexpr int kTimes = 20;
        double decoding = 0, drawing = 0, encoding = 0;
        std::size_t size = 0;
        for (int i = 0; i < kTimes; ++i) {
            const auto begin = Clock::now();
            const auto pixels = gateway::rfb::decodedJpeg(jpegs[i % 2]);
            const auto decoded = Clock::now();
            surface.draw(0, 0, {pixels.data(), kWidth, kWidth, kHeight});
            const auto drawn = Clock::now();
            Bytes data;
            for (std::size_t tile = 0; tile < surface.tiles(); ++tile)
                encoder.append(data, surface.tile(tile).pixels, {}, quality);
            encoding += milliseconds(Clock::now() - drawn) / kTimes;
            drawing += milliseconds(drawn - decoded) / kTimes;
            decoding += milliseconds(decoded - begin) / kTimes;
            size = data.size();
        }
        printf(
            "1920x1080 %-9s decode %5.1f ms, draw %4.1f ms, encode %6.1f ms, %7zu bytes: "
            "%.1f pictures/s\n",
            quality < 0 ? "lossless" : "JPEG", decoding, drawing, encoding, size,
            1000 / (decoding + drawing + encoding));
    }
}

void print(const char *what, const std::vector<double> &times) {
    printf("%-52s p50 %7.2f ms, p99 %7.2f ms\n", what, percentile(times, 0.5),
           percentile(times, 0.99));
}

// Until an update is asked for, and none comes.
void awaitQuiet(const Viewer &viewer, std::chrono::milliseconds quiet) {
    do {
        viewer.ask();
        std::this_thread::sleep_for(quiet);
    } while (viewer.drain() > 0);
}

// From the bytes of a server to those for the viewer.
void measureWayThrough(int times) {
    const int listener = listenAt(5999);
    const StandIns standIn(1);
    const Gateway gateway({standIn.address(0)}, "",
                          [](std::size_t) { return "picture = \"vnc:127.0.0.1:5999\"\n"; });
    const Viewer viewer("e0");
    const int line = accept(listener, nullptr, nullptr);
    Bytes hello;
    gateway::rfb::appendBytes(hello, std::string("RFB 003.008\n\x01\x01\0\0\0\0", 18));
    for (const unsigned part : {640U, 480U}) gateway::rfb::append16(hello, part);
    gateway::rfb::appendPixelFormat(hello, {});
    gateway::rfb::append32(hello, 0);
    sendAll(line, {hello.begin(), hello.end()});
    std::vector<double> ways;
    for (int i = 0; i < times + 10; ++i) {
        Bytes update{0, 0, 0, 1};
        for (const unsigned part : {64U, 64U, 64U, 64U}) gateway::rfb::append16(update, part);
        gateway::rfb::append32(update, 0);
        update.resize(update.size() + 4 * 64 * 64, static_cast<std::uint8_t>(i + 1));
        std::this_thread::sleep_for(std::chrono::milliseconds(60 + i % 7));
        awaitQuiet(viewer, 30ms);
        const auto begin = Clock::now();
        sendAll(line, {update.begin(), update.end()});
        const auto end = viewer.await();
        if (i >= 10) ways.push_back(milliseconds(end - begin));
        viewer.drain();
    }
    close(line);
    close(listener);
    print("a server's update to the viewer's bytes", ways);
}

// From a command in the guest to the viewer's bytes; somebody types, or nobody does.
void measureGuest(int times) {
    std::string path;
    sim::VirtualPc::Options options;
    options.pc.boot = sim::Boot::kLinux;
    options.pc.folder = PROGRAM_DIR "/computer";
    if (!missingFor(options.pc).empty()) return;
    options.pictureSocket = sim::listenForViewers("bench", path);
    sim::VirtualPc pc(options);
    std::atomic<bool> up{false};
    pc.onSerialLine([&](std::size_t, const std::string &text) { up = up || text == "up"; });
    for (int i = 0; i < 600 && !up; ++i) {
        if (i % 10 == 0 && pc.qemu()) pc.writeSerial("echo up\n");
        std::this_thread::sleep_for(100ms);
    }
    const StandIns standIn(1);
    const Gateway gateway({standIn.address(0)}, "",
                          [&](std::size_t) { return "picture = \"vnc:unix:" + path + "\"\n"; });
    const Viewer viewer("e0");
    pc.writeSerial("printf '\\033[?25l' >/dev/tty1\n");
    std::this_thread::sleep_for(10s);  // until hints have gone
    for (const bool typing : {false, true}) {
        std::vector<double> ways;
        for (int i = 0; i < times; ++i) {
            if (typing) viewer.key(0x2A, i % 2 == 0);
            awaitQuiet(viewer, std::chrono::milliseconds(typing ? 100 + i % 37 : 3000));
            const auto begin = Clock::now();
            pc.writeSerial("printf '" + std::to_string(i) + "\\r' >/dev/tty1\n");
            ways.push_back(milliseconds(viewer.await() - begin));
            viewer.drain();
            if (!typing && i == times / 10) break;
        }
        print(typing ? "a change in the guest, while somebody types"
                     : "a change in the guest, after 3 s of rest",
              ways);
    }
}

int measure(int keys) {
    try {
        setenv("XDG_RUNTIME_DIR", "/data", 1);
        if (system("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                   "-days 2 -subj /CN=bench -keyout /data/key.pem -out /data/cert.pem 2>/dev/null "
                   "&& umask 077 && echo secret >/data/password") != 0)
            throw std::runtime_error("openssl is missing");
        measureEncoding();
        measureWayThrough(keys < kFew ? 10 : 200);
        if (keys >= kFew) measureGuest(100);
        for (const bool tls : {false, true}) measureStreams(100, tls, keys);
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-picture-bench: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const int keys = argc > 1 ? std::max(2, atoi(argv[1])) : 300;
    return sim::runOnPrivateHost([keys] { return measure(keys); });
}
