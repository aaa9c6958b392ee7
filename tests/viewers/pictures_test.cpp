// Pictures from sources, in viewers that people have: a virtual PC's screen, streams of JPEGs, and
// servers that misbehave.

#include <cairo.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>
#include <thread>

#include "sim/host/picture_socket.h"
#include "tests/support/on_pc.h"
#include "tests/viewers/picture.h"
#include "tests/viewers/raw_viewer.h"
#include "tests/viewers/test_viewer.h"

namespace {

using namespace std::chrono_literals;
using namespace gateway;
using test::comesTrue, test::GatewayProgram, test::holds, test::openViewer, test::optionsFor;
using test::hasPicture, test::RawViewer, test::readFile, test::run, test::showsPicture;

Image imageOf(const std::string &png) {
    cairo_surface_t *surface = cairo_image_surface_create_from_png(png.c_str());
    const auto side = [](int pixels) { return static_cast<unsigned>(std::max(pixels, 0)); };
    Image image{side(cairo_image_surface_get_width(surface)),
                side(cairo_image_surface_get_height(surface)),
                {}};
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    for (unsigned y = 0; y < image.height; ++y) {
        const auto *row =
            reinterpret_cast<const Pixel *>(cairo_image_surface_get_data(surface) + y * stride);
        for (unsigned x = 0; x < image.width; ++x) image.pixels.push_back(row[x] & 0xFFFFFFU);
    }
    cairo_surface_destroy(surface);
    return image;
}

// As "scripts/run --web --computer linux" does it, from the firmware on.
TEST(PictureOfAPc, IsSeenFromItsFirmwareToItsShell) {
    const std::string script = readFile(SOURCE_DIR "/scripts/run");
    const std::size_t begin = script.find("exec \"$0\" --to"), end = script.find("}' \\\n", begin);
    ASSERT_NE(end, std::string::npos);
    char folder[] = "/tmp/quillon-test-XXXXXX";  // which the board inside sees, too
    ASSERT_NE(mkdtemp(folder), nullptr);
    setenv("XDG_RUNTIME_DIR", folder, 1);
    const std::string command = script.substr(begin, end + 1 - begin);
    test::writeFile("/data/gateway.sh", command + "\n");
    test::expectHeld(script, {"--listen 0 -- sh -c '", "computer=(--computer grub)", "(--vnc)"});
    GatewayProgram board(
        "--computer grub --vnc --listen 0 -- sh -c \"$(cat /data/gateway.sh)\" "
        "quillon-gateway",
        std::string("XDG_RUNTIME_DIR=") + folder + " quillon-board");
    ASSERT_FALSE(board.browserAddress().empty()) << board.said();
    std::string seen;
    const auto shows = [&](const std::string &text) {
        const bool shown = comesTrue(
            [&] {
                std::this_thread::sleep_for(300ms);  // each look stops the computer
                return holds(seen = run("quillon-board ctl screen").said, text);
            },
            60s);
        EXPECT_TRUE(shown) << "no \"" << text << "\" in\n" << seen << board.said();
        return shown;
    };
    const auto screenshot = [] {
        EXPECT_EQ(run("cd /data && quillon-board ctl screenshot guest.png").status, 0);
        return imageOf("/data/guest.png");
    };
    {
        const auto viewer = test::openBrowser(board.browserAddress());
        EXPECT_EQ(run("quillon-board ctl computer reset").status, 0);
        EXPECT_TRUE(shows("Press ESC for boot menu."));
        viewer->tap("Escape");
        EXPECT_TRUE(shows("Select boot device:"));
        viewer->tap("1");
        EXPECT_TRUE(shows("*First entry"));
        viewer->tap("Down");
        EXPECT_TRUE(shows("*Second entry"));
        viewer->tap("Down");
        EXPECT_TRUE(shows("*Linux"));
        viewer->tap("Return");
        EXPECT_TRUE(shows("BusyBox"));
        EXPECT_TRUE(shows("\n#"));
        // Linux begins anew with the keyboard, and shows its prompt meanwhile.
        EXPECT_TRUE(comesTrue(
            [&] {
                viewer->tap("Return");
                std::this_thread::sleep_for(1s);
                return holds(run("quillon-board ctl screen").said, "\n#\n#");
            },
            60s));
        const Image before = screenshot();
        viewer->type("echo seen in a browser");
        viewer->tap("Return");
        EXPECT_TRUE(shows("\nseen in a browser\n"));
        const Image guest = screenshot();
        EXPECT_EQ(guest.width, 720U);
        EXPECT_TRUE(comesTrue([&] { return showsPicture(viewer->image(), guest); }, 20s));
        EXPECT_FALSE(showsPicture(viewer->image(), before)) << "another text is another picture";
        if (const char *to = getenv("QUILLON_SCREENSHOT"))
            viewer->ask(std::string("save ") + to);  // for the README
    }
    EXPECT_EQ(board.end(SIGINT), 130);
    run(std::string("rm -rf ") + folder);
}

class EveryPcViewer : public test::OnPc, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(Each, EveryPcViewer, testing::Values("TigerVNC", "gvncviewer", "noVNC"),
                         [](const auto &test) { return std::string(test.param); });

TEST_P(EveryPcViewer, ShowsTheScreenAndTypesAtIt) {
    setenv("XDG_RUNTIME_DIR", "/data", 1);
    std::string path;
    const int socket = sim::listenForViewers("pc", path);
    ASSERT_NO_FATAL_FAILURE(power(sim::Boot::kLinux, test::kFast, socket));
    ASSERT_TRUE(shows("\n#"));
    GatewayProgram gateway("--to 192.168.1.10 --picture vnc:unix:" + path + " " +
                           optionsFor(GetParam()));
    const auto viewer = openViewer(GetParam(), gateway);
    viewer->type("echo seen here");
    viewer->tap("Return");
    EXPECT_TRUE(shows("\nseen here\n"));
    test::writeFile("/data/guest.png", pc().screenshot());
    const Image guest = imageOf("/data/guest.png");
    EXPECT_TRUE(comesTrue([&] { return showsPicture(viewer->image(), guest); }, 20s))
        << "hints go away after some seconds";
}

// ---- streams and servers that are not QEMU's

class Pictures : public test::OnBoard {
  protected:
    // A picture with places that a viewer's window cannot hide, as a JPEG.
    static Image makeJpeg(const std::string &name, unsigned width, unsigned height, Pixel colour) {
        Image image{width, height, {}};
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
                image.pixels.push_back((x / 40 + y / 40) % 2 != 0 ? colour : x * 255 / width);
        rfb::JpegEncoder encoder;
        const auto &bytes = encoder.encode(image.all(), 8);
        test::writeFile(name, std::string(bytes.begin(), bytes.end()));
        image.pixels = rfb::decodedJpeg(rfb::checkedJpeg(bytes));
        return image;
    }
    // Without a colour below the words, and not all black: the last pixel has light in both
    // pictures.
    static bool isGrey(const RawViewer &viewer, unsigned below) {
        const auto &pixels = viewer.picture().pixels;
        const auto coloured = std::find_if(pixels.rbegin(), pixels.rend(),
                                           [](Pixel pixel) { return pixel % 0x10101U != 0; });
        return pixels.back() != 0 &&
               pixels.rend() - coloured <= std::ptrdiff_t{below} * viewer.width();
    }
    // The words over a lost picture, with the second in which it was lost.
    static bool saysSince(const Image &image, const std::string &why) {
        const std::time_t now = std::time(nullptr);
        for (std::time_t when = now; when > now - 60; --when) {
            char text[32];
            std::tm parts{};
            strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", localtime_r(&when, &parts));
            const std::string line =
                std::string("No picture since ") + text + ": " + why + ". It is tried again.";
            const Image box = drawnBox({line}, image.width);
            if (hasPicture(image, box, (image.width - box.width) / 2, 0, {0, 0})) return true;
        }
        return false;
    }
    static std::vector<std::int32_t> takingJpegs() {
        return {rfb::kTight, rfb::kQualityLevel0 + 6, rfb::kExtendedDesktopSize};
    }
};

TEST_F(Pictures, OfACaptureDeviceAreShownLostAndBack) {
    startListening(test::kFast);
    const Image one = makeJpeg("/data/one.jpg", 800, 600, 0x40C020);
    const Image two = makeJpeg("/data/two.jpg", 640, 480, 0xC04020);
    test::writeFile("/data/secret", "geheim\n");
    chmod("/data/secret", 0600);
    const auto streamer = [&](const std::string &jpeg) {
        return std::make_unique<test::Background>(
            "ustreamer --device /dev/none --host 127.0.0.1 --port 8090 --user ann "
            "--passwd geheim --blank " +
            jpeg + " >/data/streamer.log 2>&1");
    };
    auto source = streamer("/data/one.jpg");
    GatewayProgram gateway(
        "--to 192.168.1.10 --picture mjpeg:http://127.0.0.1:8090/stream "
        "--picture-user ann --picture-password-file /data/secret " +
        optionsFor("noVNC"));
    const auto browser = openViewer("noVNC", gateway);
    // Its image is the upper left part, of which words may hide the first lines.
    const auto browserHas = [&](const Image &picture, unsigned width, unsigned height) {
        Image part{width, height, {}};
        for (unsigned y = 100; y < 100 + height; ++y)
            part.pixels.insert(part.pixels.end(), picture.all().row(y),
                               picture.all().row(y) + width);
        const test::Tolerance tolerance{8, part.pixels.size() / 200};
        return comesTrue([&] { return showsPicture(browser->image(), part, tolerance); }, 20s);
    };
    EXPECT_TRUE(browserHas(one, 700, 250)) << gateway.said();
    RawViewer whole(gateway.socketPath()), pixels(gateway.socketPath());
    ASSERT_TRUE(whole.enter() && pixels.enter());
    EXPECT_EQ(whole.width(), 800U);
    whole.encodings(takingJpegs());
    pixels.encodings({rfb::kRaw, rfb::kExtendedDesktopSize});
    EXPECT_TRUE(whole.until([&] { return whole.jpeg() == readFile("/data/one.jpg"); }))
        << "not one byte of it is changed";
    // Without the words at its edge, which stay for some seconds.
    const auto pixelsHave = [&](const Image &picture) {
        return hasPicture(pixels.picture(), picture, 0, 0, {8, std::size_t{60} * picture.width});
    };
    EXPECT_TRUE(pixels.until([&] { return pixelsHave(one); }));
    RawViewer exact(gateway.socketPath());
    ASSERT_TRUE(exact.enter());
    exact.encodings({rfb::kTight, rfb::kExtendedDesktopSize});
    exact.request(false);
    EXPECT_TRUE(exact.read());
    EXPECT_EQ(exact.jpeg(), "") << "it asked for no level of quality";
    exact.close();

    source.reset();
    EXPECT_TRUE(pixels.until([&] { return isGrey(pixels, 80); }));
    // The second reason comes with the next try.
    EXPECT_TRUE(pixels.until([&] {
        return saysSince(pixels.picture(), "the connection was closed") ||
               saysSince(pixels.picture(), "it cannot be reached (Connection refused)");
    }));
    source = streamer("/data/two.jpg");
    // On a slow machine the pause before the next try has grown meanwhile.
    const auto isBack = [&] {
        return pixels.until([&] { return pixels.width() == 640 && pixelsHave(two); });
    };
    EXPECT_TRUE(isBack() || isBack() || isBack()) << gateway.said();
    EXPECT_TRUE(browserHas(two, 600, 250));
    EXPECT_TRUE(holds(gateway.said(), "No picture of 192.168.1.10: ")) << gateway.said();
}

TEST_F(Pictures, ThatAreWrongHarmNobody) {
    startListening(test::kFast);
    const Image one = makeJpeg("/data/one.jpg", 320, 240, 0x40C020);
    const Image two = makeJpeg("/data/two.jpg", 400, 240, 0xC04020);
    ASSERT_EQ(run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
                  "-days 2 -subj /CN=cam -addext subjectAltName=IP:127.0.0.1 -keyout "
                  "/data/cam.key -out /data/cam.pem")
                  .status,
              0);
    const test::Background server(
        "/usr/bin/python3 " SOURCE_DIR
        "/tests/viewers/picture_server.py 8090 8091 5930 "
        "/data/cam.pem /data/cam.key /data/one.jpg /data/two.jpg >/data/server.log 2>&1");
    const auto served = [] { return readFile("/data/server.log"); };
    ASSERT_TRUE(comesTrue([&] { return holds(served(), "ready"); }, 20s)) << served();
    // What is shown in the end: a picture by its width, or words. Who looks for a name may be told
    // that it is not there, or nothing.
    const struct {
        const char *source;
        unsigned width;
        const char *words;
    } sources[] = {{"mjpeg:https://127.0.0.1:8091/good", 320, ""},
                   {"mjpeg:http://127.0.0.1:8090/sizes", 400, ""},
                   {"mjpeg:http://127.0.0.1:8090/huge", 0, "sends pictures of more than 4 MiB"},
                   {"mjpeg:http://127.0.0.1:8090/silence", 0, "no whole picture came for 2 s"},
                   {"mjpeg:http://127.0.0.1:8090/drip", 0, "no whole picture came for 2 s"},
                   {"mjpeg:https://127.0.0.1:8091/untrusted", 0, "certificate verify failed"},
                   {"mjpeg:http://127.0.0.1:1/", 0, "it cannot be reached (Connection refused)"},
                   {"vnc:nowhere.invalid:5900", 0, ": it "},
                   {"vnc:127.0.0.1:5930", 640, "the server has not answered for 2 s"},
                   {"vnc:127.0.0.1:5931", 4096, ""},
                   {"vnc:127.0.0.1:5932", 0, "did not finish the handshake of RFB within 2 s"},
                   {"vnc:127.0.0.1:5933", 0, "the server has not answered for 2 s"},
                   {"vnc:127.0.0.1:5934", 0, "the connection was closed"}};
    std::ofstream file("/data/gateway.toml");
    file << "[limits]\npicture_seconds = 2\n[endpoint.real]\naddress = \"192.168.1.10\"\n";
    unsigned number = 0;
    for (const auto &source : sources) {
        file << "[endpoint.e" << number << "]\naddress = \"127.0.1." << number + 1
             << "\"\npicture = \"" << source.source << "\"\n";
        ++number;
        if (holds(source.source, "good")) file << "picture_ca = \"/data/cam.pem\"\n";
    }
    file.close();
    const GatewayProgram gateway("--config /data/gateway.toml");
    std::this_thread::sleep_for(1s);
    EXPECT_FALSE(holds(served(), "open")) << "nobody watches";
    std::vector<std::unique_ptr<RawViewer>> viewers;
    const auto open = [&](const std::string &name) -> RawViewer & {
        viewers.push_back(std::make_unique<RawViewer>("/data/quillon-gateway/" + name + ".sock"));
        EXPECT_TRUE(viewers.back()->enter()) << name;
        viewers.back()->encodings(takingJpegs());
        return *viewers.back();
    };
    RawViewer &typist = open("real");
    for (unsigned i = 0; i < number; ++i) open("e" + std::to_string(i));
    RawViewer &second = open("e0");
    for (unsigned i = 0; i < number; ++i) {
        RawViewer &viewer = *viewers[i + 1];
        const std::string name = std::string("No picture of e") + std::to_string(i) + ": ";
        if (sources[i].width != 0) {
            EXPECT_TRUE(viewer.until([&] { return viewer.width() == sources[i].width; }))
                << sources[i].source << " has " << viewer.width();
        }
        if (*sources[i].words == '\0') continue;
        EXPECT_TRUE(comesTrue(
            [&] {
                std::istringstream log(gateway.said());
                for (std::string line; std::getline(log, line);)
                    if (holds(line, name) && holds(line, sources[i].words)) return true;
                return false;
            },
            30s))
            << name << sources[i].words << "\n"
            << gateway.said();
    }
    // The greatest one is on its way again and again, and keys go on.
    for (const char key : std::string("hello")) typist.tap(static_cast<unsigned char>(key));
    EXPECT_TRUE(arrives("hello"));
    EXPECT_TRUE(second.until([&] { return second.jpeg() == readFile("/data/one.jpg"); }));
    const std::string log = served();
    const auto times = [&](const std::string &line) {
        int count = 0;
        for (std::size_t at = log.find(line); at != std::string::npos; at = log.find(line, at + 1))
            ++count;
        return count;
    };
    EXPECT_EQ(times("open good") - times("closed good"), 1) << "one connection for two viewers";
    EXPECT_FALSE(holds(log, "heard 4") || holds(log, "heard 5")) << "no input goes to a source";
    EXPECT_TRUE(holds(log, "heard 3")) << log;
    viewers.clear();
    EXPECT_TRUE(comesTrue([&] { return holds(served(), "closed good"); }, 10s)) << served();
#ifndef __SANITIZE_ADDRESS__
    EXPECT_LT(
        std::stol(
            run("sed -n 's/^VmHWM: *//p' /proc/" + std::to_string(gateway.pid()) + "/status").said),
        400 * 1024);
#endif
}

}  // namespace
