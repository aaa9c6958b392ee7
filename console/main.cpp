// quillon-console: keyboard and mouse for an endpoint, from the command line.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "endpoint.h"
#include "input.h"

namespace {

using console::Datagram;

volatile std::sig_atomic_t interrupted = 0;

struct Options {
    std::string to, from;
    std::uint16_t port = 80;
    unsigned intervalMs = 8;

    std::string text;
    std::vector<std::string> combos;
    std::vector<std::uint16_t> position;
    std::vector<int> distance;
    std::string button;
    int notches = 0;
};

// Sends records at a rate that the chip takes: it has 115200 bits per second and no flow control.
class Sender {
  public:
    explicit Sender(const Options &options)
        : endpoint_(options.to, options.port, options.from), interval_(options.intervalMs) {
        clock_gettime(CLOCK_MONOTONIC, &due_);
    }

    console::Endpoint &endpoint() { return endpoint_; }

    void send(const std::vector<Datagram> &records, const char *progress = nullptr) {
        for (std::size_t i = 0; i < records.size() && interrupted == 0; ++i) {
            endpoint_.send(records[i].data(), records[i].size());
            if (progress != nullptr && i % 16 == 0)
                fprintf(stderr, "\r%s %zu %%", progress, 100 * i / records.size());
            pause();
        }
        if (progress != nullptr) fprintf(stderr, "\r%s 100 %%\n", progress);
        if (interrupted != 0) releaseKeys();
    }

  private:
    void pause() {
        due_.tv_nsec += static_cast<long>(interval_) * 1000000;
        due_.tv_sec += due_.tv_nsec / 1000000000;
        due_.tv_nsec %= 1000000000;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due_, nullptr);
    }

    // Ctrl-C in the middle of a text must not leave a key down at the computer.
    void releaseKeys() {
        const auto up = console::keyboardRecord({});
        endpoint_.send(up.data(), up.size());
    }

    console::Endpoint endpoint_;
    unsigned interval_;
    timespec due_{};
};

void type(const Options &options, bool fromInput) {
    constexpr std::size_t kLongText = 200;
    std::string text = options.text, error;
    if (fromInput) text.assign(std::istreambuf_iterator<char>(std::cin), {});
    std::vector<Datagram> records;
    if (!console::typeText(text, records, error)) throw std::runtime_error(error);
    const bool progress = text.size() >= kLongText && isatty(STDERR_FILENO) != 0;
    Sender(options).send(records, progress ? "typing" : nullptr);
}

void pressKeys(const Options &options) {
    std::vector<Datagram> records;
    for (const std::string &combo : options.combos) {
        std::string error;
        const auto stroke = console::parseCombo(combo, error);
        if (!stroke) throw std::runtime_error(error);
        for (Datagram &record : console::strokeKey(*stroke)) records.push_back(std::move(record));
    }
    Sender(options).send(records);
}

void moveTo(const Options &options) {
    const auto record =
        console::absoluteRecord(options.position[0], options.position[1], console::kNoButton, 0);
    Sender(options).send({console::datagram(record)});
}

void moveBy(const Options &options) {
    Sender sender(options);
    const auto link = sender.endpoint().ask("link", std::chrono::seconds(2));
    if (!link) throw std::runtime_error("no answer from " + sender.endpoint().name());
    if (link->find("kvm=rel") == std::string::npos)
        throw std::runtime_error(
            "the endpoint's mouse is in absolute mode, which takes no "
            "movements; use \"mouse move X Y\"");
    sender.send(console::moveBy(options.distance[0], options.distance[1]));
}

const std::map<std::string, console::Button> kButtons{
    {"left", console::kLeft}, {"right", console::kRight}, {"middle", console::kMiddle}};

void click(const Options &options) {
    Sender(options).send(
        console::clickAt(options.position[0], options.position[1], kButtons.at(options.button)));
}

void turnWheel(const Options &options) {
    Sender(options).send(
        console::wheelAt(options.position[0], options.position[1], options.notches));
}

void addMouse(CLI::App &app, Options &options) {
    auto *mouse = app.add_subcommand("mouse", "Move the pointer, click, turn the wheel");
    mouse->require_subcommand(1);
    const auto at = [&](CLI::App *command) {
        command->add_option("--at", options.position, "Where, in pixels of the picture")
            ->type_name("X Y")
            ->expected(2)
            ->required();
    };

    auto *move = mouse->add_subcommand("move", "Move to a pixel of the picture");
    move->add_option("position", options.position, "Pixel")
        ->type_name("X Y")
        ->expected(2)
        ->required();
    move->callback([&options] { moveTo(options); });

    auto *by = mouse->add_subcommand("by", "Move by a distance (relative mouse mode)");
    by->add_option("distance", options.distance, "Distance")
        ->type_name("DX DY")
        ->expected(2)
        ->required();
    by->callback([&options] { moveBy(options); });

    auto *clicking = mouse->add_subcommand("click", "Click a button: left, right or middle");
    clicking->add_option("button", options.button, "Which one")
        ->required()
        ->type_name("BUTTON")
        ->check(CLI::IsMember(kButtons).description(""));
    at(clicking);
    clicking->callback([&options] { click(options); });

    auto *wheel = mouse->add_subcommand("wheel", "Turn the wheel; positive is up");
    wheel->add_option("notches", options.notches, "How far")
        ->required()
        ->type_name("N")
        ->check(CLI::Range(-10000, 10000).description(""));
    at(wheel);
    wheel->callback([&options] { turnWheel(options); });
}

void addCommands(CLI::App &app, Options &options) {
    app.add_option("--to", options.to, "Address of the endpoint")
        ->required()
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4);
    app.add_option("--port", options.port, "UDP port of its data server")
        ->type_name("N")
        ->check(CLI::Range(1, 65535).description(""))
        ->capture_default_str();
    app.add_option("--from", options.from, "Own address to send from")
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4);
    app.add_option("--interval", options.intervalMs, "Milliseconds from record to record")
        ->type_name("N")
        ->check(CLI::Range(0, 10000).description(""))
        ->capture_default_str();
    app.require_subcommand(1);

    auto *typing = app.add_subcommand("type", "Type a text (US layout)");
    auto *text = typing->add_option("text", options.text, "The text; standard input without it")
                     ->type_name("TEXT");
    typing->callback([&options, text] { type(options, text->count() == 0); });

    auto *key = app.add_subcommand("key", "Press keys, e.g. ctrl+alt+delete or f5");
    key->add_option("combo", options.combos, "Modifiers and one key, joined by +")
        ->required()
        ->type_name("COMBO...");
    key->callback([&options] { pressKeys(options); });

    addMouse(app, options);
}

}  // namespace

int main(int argc, char **argv) {
    struct sigaction stop {};
    stop.sa_handler = [](int) { interrupted = 1; };
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &stop, nullptr);

    CLI::App app{"Keyboard and mouse for a KVM extender endpoint", "quillon-console"};
    Options options;
    addCommands(app, options);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return std::string("quillon-console: ") + error.what() + " (--help says more)\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-console: %s\n", error.what());
        return 1;
    }
    return interrupted != 0 ? 130 : 0;
}
