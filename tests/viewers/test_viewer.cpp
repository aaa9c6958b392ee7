#include "tests/viewers/test_viewer.h"

#include <fcntl.h>
#include <rfb/rfbclient.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "layouts/unicode.h"
#include "sim/host/process.h"
#include "tests/viewers/picture.h"
#include "tests/viewers/screen.h"

namespace test {
namespace {

constexpr char kPassword[] = "geheim12", kTlsPort[] = "5901", kPasswordPort[] = "5902";

// A program on a screen, with keys and mouse of that screen.
class ViewerOnScreen : public TestViewer {
  public:
    void type(const std::string &text) override { screen_.does("type --delay 20 '" + text + "'"); }
    void key(const std::string &name, bool down) override {
        screen_.does((down ? "keydown " : "keyup ") + name);
    }
    void move(int x, int y) override {
        const auto at = [](double begin, double scale, int pixel) {
            return std::to_string(static_cast<int>(begin + scale * pixel + scale / 2));
        };
        screen_.does("mousemove " + at(left_, scale_, x) + " " + at(top_, scale_, y));
    }
    void correct(int x, int y) override {
        left_ += x * scale_;
        top_ += y * scale_;
    }
    void button(int number, bool down) override {
        screen_.does((down ? "mousedown " : "mouseup ") + std::to_string(number));
    }
    gateway::Image image() override { return screen_.image(); }
    pid_t pid() const override { return pid_; }

  protected:
    void requireFocus(const std::string &name) {
        if (!screen_.focus(name)) throw std::runtime_error("there is no window " + name);
    }

    Screen screen_;
    double left_ = 0, top_ = 0, scale_ = 1;
    pid_t pid_ = 0;
};

class TigerVnc : public ViewerOnScreen {
  public:
    TigerVnc() {
        pid_ = screen_.start(std::string("env VNC_USERNAME=viewer VNC_PASSWORD=") + kPassword +
                             " xtigervncviewer -SecurityTypes=X509Plain -X509CA=/data/cert.pem "
                             "-geometry 1920x1080+0+0 localhost::" +
                             kTlsPort + " 2>/data/tigervnc.log");
        requireFocus("TigerVNC");
        screen_.does("mousemove 500 500 click 1");  // before, it does not look at the mouse
    }
};

class GVncViewer : public ViewerOnScreen {
  public:
    GVncViewer() {
        // Its display 2 is port 5902.
        pid_ = screen_.start("gvncviewer 127.0.0.1:2 2>/data/gvncviewer.log");
        requireFocus("Authentication");
        screen_.does(std::string("type ") + kPassword);
        screen_.does("key Return");
        requireFocus("192.168.1.10");
    }
};

class NoVnc : public ViewerOnScreen {
  public:
    explicit NoVnc(const std::string &address) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        driver_ =
            sim::launch({{"/usr/bin/python3", SOURCE_DIR "/tests/viewers/browser.py", address},
                         {"HOME=/data"},
                         "",
                         in[0],
                         out[1],
                         -1,
                         true});
        close(in[0]);
        close(out[1]);
        requests_ = fdopen(in[1], "w");
        answers_ = fdopen(out[0], "r");
        place();
        if (scale_ <= 0) throw std::runtime_error("noVNC does not come to a picture");
        requireFocus("Quillon");
    }
    ~NoVnc() override {
        fputs("quit\n", requests_);
        fclose(requests_);
        sim::awaitExit(driver_);
        fclose(answers_);
    }
    NoVnc(const NoVnc &) = delete;
    NoVnc &operator=(const NoVnc &) = delete;

    // The browser shows and hides bars of its own above the page.
    void move(int x, int y) override {
        place();
        ViewerOnScreen::move(x, y);
    }
    void correct(int, int) override {}
    gateway::Image image() override {
        ask("shot /data/shot");
        const std::string bytes = readFile("/data/shot");
        gateway::Image image{900, 400, {}};
        for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) {
            const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
            image.pixels.push_back(static_cast<gateway::Pixel>(byte(i) << 16 | byte(i + 1) << 8) |
                                   byte(i + 2));
        }
        image.pixels.resize(std::size_t{900} * 400);
        return image;
    }

    std::string ask(const std::string &request) override {
        fputs((request + "\n").c_str(), requests_);
        fflush(requests_);
        char line[1000] = "";
        if (fgets(line, sizeof line, answers_) == nullptr)
            throw std::runtime_error("the browser ended");
        return line;
    }

  private:
    void place() {
        std::istringstream said(ask("ready"));
        double width = 0;
        said >> left_ >> top_ >> width;
        scale_ = width / 1920;
    }

    pid_t driver_;
    FILE *requests_ = nullptr, *answers_ = nullptr;
};

void quiet(const char *, ...) {}

// The library that many viewers stand on, in this process.
class LibVncClient : public TestViewer {
  public:
    explicit LibVncClient(const GatewayProgram &gateway) : client_(rfbGetClient(8, 3, 4)) {
        rfbClientLog = rfbClientErr = quiet;
        free(client_->serverHost);
        client_->serverHost = strdup(gateway.socketPath().c_str());
        client_->canHandleNewFBSize = FALSE;
        if (!rfbInitClient(client_, nullptr, nullptr)) throw std::runtime_error("libvncclient");
        thread_ = std::thread([this] {
            while (!ending_) {
                if (WaitForMessage(client_, 10000) <= 0) continue;
                const std::lock_guard<std::mutex> lock(mutex_);
                if (!HandleRFBServerMessage(client_)) return;
            }
        });
    }
    ~LibVncClient() override {
        ending_ = true;
        thread_.join();
        free(client_->frameBuffer);  // which it leaves to its user
        rfbClientCleanup(client_);
    }
    LibVncClient(const LibVncClient &) = delete;
    LibVncClient &operator=(const LibVncClient &) = delete;

    void type(const std::string &text) override {
        for (const char32_t character : quillon::codePoints(text)) {
            // A keysym of Latin-1 is its character.
            send(character, true);
            send(character, false);
        }
    }
    void key(const std::string &name, bool down) override {
        const std::map<std::string, std::uint32_t> names{
            {"Control_L", XK_Control_L}, {"Alt_L", XK_Alt_L},
            {"Shift_L", XK_Shift_L},     {"F2", XK_F2},
            {"Caps_Lock", XK_Caps_Lock}, {"a", 'a'}};
        send(names.at(name), down);
    }
    void move(int x, int y) override {
        x_ = x;
        y_ = y;
        send();
    }
    void button(int number, bool down) override {
        const int bit = 1 << (number - 1);
        buttons_ = down ? buttons_ | bit : buttons_ & ~bit;
        send();
    }
    gateway::Image image() override {
        const std::lock_guard<std::mutex> lock(mutex_);
        gateway::Image image{
            static_cast<unsigned>(client_->width), static_cast<unsigned>(client_->height), {}};
        image.pixels.resize(std::size_t{image.width} * image.height);
        memcpy(image.pixels.data(), client_->frameBuffer,
               image.pixels.size() * sizeof(gateway::Pixel));
        const rfbPixelFormat &format = client_->format;
        for (gateway::Pixel &pixel : image.pixels)
            pixel = (pixel >> format.redShift & 0xFFU) << 16U |
                    (pixel >> format.greenShift & 0xFFU) << 8U |
                    (pixel >> format.blueShift & 0xFFU);
        return image;
    }

  private:
    // A person's fingers take some milliseconds.
    void send(std::uint32_t keysym, bool down) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::lock_guard<std::mutex> lock(mutex_);
        SendKeyEvent(client_, keysym, down ? TRUE : FALSE);
    }
    void send() {
        const std::lock_guard<std::mutex> lock(mutex_);
        SendPointerEvent(client_, x_, y_, buttons_);
    }

    rfbClient *client_;
    std::mutex mutex_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
    int x_ = 0, y_ = 0, buttons_ = 0;
};

}  // namespace

bool TestViewer::shows(const std::string &line) {
    return comesTrue([&] { return showsLine(image(), line); }, std::chrono::seconds(10));
}

std::unique_ptr<TestViewer> openViewer(const std::string &kind, const GatewayProgram &gateway) {
    if (kind == "TigerVNC") return std::make_unique<TigerVnc>();
    if (kind == "gvncviewer") return std::make_unique<GVncViewer>();
    if (kind == "noVNC") return openBrowser(gateway.browserAddress());
    return std::make_unique<LibVncClient>(gateway);
}

std::unique_ptr<TestViewer> openBrowser(const std::string &address) {
    return std::make_unique<NoVnc>(address);
}

std::string optionsFor(const std::string &kind) {
    std::string options = "--from 192.168.1.20 --layout de ";
    writeFile("/data/password", std::string(kPassword) + "\n");
    chmod("/data/password", 0600);
    if (kind == "gvncviewer")
        options +=
            std::string("--password-file /data/password --listen 127.0.0.1:") + kPasswordPort;
    if (kind != "TigerVNC") return options;
    const Outcome made =
        run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
            "-subj /CN=localhost -addext subjectAltName=DNS:localhost -keyout /data/key.pem -out "
            "/data/cert.pem");
    EXPECT_EQ(made.status, 0) << made.said;
    return options +
           "--password-file /data/password --certificate /data/cert.pem --key /data/key.pem "
           "--listen 127.0.0.1:" +
           kTlsPort;
}

}  // namespace test
