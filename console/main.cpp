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

#include "commands.h"
#include "input.h"
#include "report.h"

namespace {

using console::Datagram;

volatile std::sig_atomic_t interrupted = 0;

struct Options {
    std::string to, from;
    std::uint16_t port = 80;
    unsigned intervalMs = 8;
    unsigned timeoutMs = 2000;
    bool json = false, asSoftware = false, viaGroup = false;

    std::string text;
    std::vector<std::string> combos;
    std::vector<std::uint16_t> position;
    std::vector<int> distance;
    std::string button;
    int notches = 0;
    std::vector<std::string> leds;
    std::string mode;
};

console::Session openSession(const Options &options) {
    if (options.to.empty()) throw CLI::RequiredError("--to");
    return {options.to, options.port, options.from, std::chrono::milliseconds(options.timeoutMs)};
}

// Sends records at a rate that the chip takes: it has 115200 bits per second and no flow control.
class Sender {
  public:
    explicit Sender(const Options &options)
        : session_(openSession(options)),
          tag_(options.asSoftware ? "software=" : ""),
          interval_(options.intervalMs) {
        if (!options.asSoftware) askPermission();
        clock_gettime(CLOCK_MONOTONIC, &due_);
    }

    console::Session &session() { return session_; }

    void send(const std::vector<Datagram> &records, const char *progress = nullptr) {
        for (std::size_t i = 0; i < records.size() && interrupted == 0; ++i) {
            sendOne(records[i]);
            if (progress != nullptr && i % 16 == 0)
                fprintf(stderr, "\r%s %zu %%", progress, 100 * i / records.size());
            pause();
        }
        if (progress != nullptr) fprintf(stderr, "\r%s 100 %%\n", progress);
        // Ctrl-C in the middle of a text must not leave a key down at the computer.
        if (interrupted != 0) sendOne(console::datagram(console::keyboardRecord({})));
    }

  private:
    // The endpoint drops what it does not take without a word; this says so before.
    void askPermission() {
        switch (console::maySend(session_.settings(), session_.ownAddress())) {
            case console::MaySend::kYes:
                return;
            case console::MaySend::kByChance:
                fprintf(stderr,
                        "quillon-console: permissions are on and nobody is linked; the "
                        "endpoint may drop this\n");
                return;
            case console::MaySend::kNo:
                throw std::runtime_error(session_.ownAddress() +
                                         " may not send: permissions are on, and another user's "
                                         "outputs are linked (see \"query\", --as-software)");
        }
    }

    void sendOne(const Datagram &record) {
        const std::string bytes = tag_ + std::string(record.begin(), record.end());
        session_.data().send(bytes.data(), bytes.size());
    }

    void pause() {
        due_.tv_nsec += static_cast<long>(interval_) * 1000000;
        due_.tv_sec += due_.tv_nsec / 1000000000;
        due_.tv_nsec %= 1000000000;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due_, nullptr);
    }

    console::Session session_;
    std::string tag_;
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
    if (options.asSoftware)
        throw std::runtime_error(
            "movements cannot be wrapped: the endpoint knows only keyboard "
            "and position records from software");
    Sender sender(options);
    if (!sender.session().link().relative)
        throw std::runtime_error(
            "the endpoint's mouse is in absolute mode, which takes no movements; use \"mouse move "
            "X Y\", or change it with \"mouse-mode rel\"");
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

// "caps=on num=off"; what is not named stays as it is.
console::LockKeys wantedKeys(const std::vector<std::string> &words, console::LockKeys keys) {
    for (const std::string &word : words) {
        const std::size_t equals = word.find('=');
        const std::string key = word.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : word.substr(equals + 1);
        if ((key != "caps" && key != "num") || (value != "on" && value != "off"))
            throw CLI::ValidationError("set-leds",
                                       "\"" + word + "\" is not caps=on|off, num=on|off");
        (key == "caps" ? keys.caps : keys.num) = value == "on";
    }
    return keys;
}

void setLeds(const Options &options) {
    wantedKeys(options.leds, {});  // wrong words are told before anything is sent
    auto session = openSession(options);
    session.setLockKeys(wantedKeys(options.leds, session.lockKeys()));
    console::print(console::reportOf(session.lockKeys()), options.json);
}

void showEndpoints(const Options &options) {
    const auto found =
        console::discover(options.from, std::chrono::milliseconds(options.timeoutMs));
    if (found.empty()) throw std::runtime_error("no endpoint answered");
    std::vector<console::Report> reports;
    reports.reserve(found.size());
    for (const console::Holder &holder : found) reports.push_back(console::reportOf(holder));
    console::printTable(reports, options.json);
}

void showUsbLink(const Options &options) {
    auto session = openSession(options);
    console::print({{"computer", session.usbLinked()}}, options.json);
}

void addQuestions(CLI::App &app, Options &options) {
    const auto command = [&](const char *name, const char *help, auto carryOut) {
        auto *added = app.add_subcommand(name, help);
        added->callback([&options, carryOut] { carryOut(options); });
        return added;
    };
    command("link", "Picture size and mouse mode", [](const Options &o) {
        console::print(console::reportOf(openSession(o).link()), o.json);
    });
    command("leds", "Caps Lock and Num Lock of the computer", [](const Options &o) {
        console::print(console::reportOf(openSession(o).lockKeys()), o.json);
    });
    command("query", "Who controls the endpoint", [](const Options &o) {
        console::print(console::reportOf(openSession(o).holder()), o.json);
    });
    command("discover", "All endpoints on the network; needs no --to", showEndpoints);
    command("usb-link", "Is a computer attached? Strokes Num Lock to see", showUsbLink);
    command("settings", "The endpoint's settings", [](const Options &o) {
        auto session = openSession(o);
        console::print(
            console::reportOf(o.viaGroup ? session.settingsViaGroup() : session.settings()),
            o.json);
    })->add_flag("--via-group", options.viaGroup, "Let it send them to everybody");
}

void addSwitches(CLI::App &app, Options &options) {
    auto *leds = app.add_subcommand("set-leds", "Set the computer's lock keys");
    leds->add_option("keys", options.leds, "caps=on|off, num=on|off")
        ->required()
        ->type_name("KEY=STATE...");
    leds->callback([&options] { setLeds(options); });

    const auto choice = [&](const char *name, const char *help, const char *first,
                            const char *second, auto set) {
        auto *added = app.add_subcommand(name, help);
        added->add_option("state", options.mode, std::string(first) + " or " + second)
            ->required()
            ->type_name("STATE")
            ->check(CLI::IsMember({first, second}).description(""));
        added->callback([&options, first, set] {
            auto session = openSession(options);
            set(session, options.mode == first);
        });
    };
    choice("mouse-mode", "Relative or absolute mouse", "rel", "abs",
           [](console::Session &s, bool on) { s.setMouseMode(on); });
    choice("permissions", "Only linked consoles may send", "on", "off",
           [](console::Session &s, bool on) { s.setPermissions(on); });
    choice("usb-power", "Power of the computer's USB line", "on", "off",
           [](console::Session &s, bool on) { s.setUsbPower(on); });
}

void addCommands(CLI::App &app, Options &options) {
    app.add_option("--to", options.to, "Address of the endpoint")
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
    app.add_option("--timeout", options.timeoutMs, "Milliseconds to wait for an answer")
        ->type_name("N")
        ->check(CLI::Range(1, 600000).description(""))
        ->capture_default_str();
    app.add_flag("--json", options.json, "Answers as JSON, one object per line");
    app.add_flag("--as-software", options.asSoftware,
                 "Wrap records as software's, which every endpoint takes");
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
    addQuestions(app, options);
    addSwitches(app, options);
}

}  // namespace

int main(int argc, char **argv) {
    struct sigaction stop {};
    stop.sa_handler = [](int) { interrupted = 1; };
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &stop, nullptr);

    CLI::App app{"Keyboard, mouse and questions for a KVM extender endpoint", "quillon-console"};
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
