// Commands that type, press and point.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <thread>

#include "console/interrupt.h"
#include "console/options.h"
#include "protocol/input.h"

namespace quillon {
namespace {

// Sends records at a rate that the chip takes: it has 115200 bits per second and no flow control.
// Whatever ends it, keys and buttons are let go, and said so more than once: nobody repeats what a
// line loses, and a socket tells of one datagram only when the next is sent.
class Sender {
  public:
    explicit Sender(const Options &options)
        : session_(openSession(options)),
          tag_(options.asSoftware ? "software=" : ""),
          interval_(options.intervalMs),
          patience_(options.timeoutMs),
          repeat_(options.repeat) {
        if (!options.asSoftware) askPermission();
    }
    ~Sender() { letGo(); }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    Session &session() { return session_; }

    void send(const std::vector<Datagram> &records, const char *progress = nullptr) {
        catchSignals();  // before, there is nothing to let go
        for (std::size_t i = 0; i < records.size() && interrupted == 0; ++i) {
            // Before it leaves: it may have left when an error says it has not.
            release_[records[i].size()] = released(records[i]);
            for (unsigned n = 0; n < repeat_; ++n) {
                sendOne(records[i]);
                pause(interval_);
            }
            if (progress != nullptr && i % 16 == 0)
                fprintf(stderr, "\r%s %zu %%", progress, 100 * i / records.size());
        }
        if (progress != nullptr) fprintf(stderr, "\r%s 100 %%\n", progress);
    }

  private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    // The endpoint drops what it does not take without a word; this says so before.
    void askPermission() {
        switch (maySend(session_.settings(), session_.ownAddress())) {
            case MaySend::kYes:
                return;
            case MaySend::kByChance:
                fprintf(stderr,
                        "quillon-console: permissions are on and nobody is linked; the "
                        "endpoint may drop this\n");
                return;
            case MaySend::kNo:
                throw std::runtime_error(session_.ownAddress() +
                                         " may not send: permissions are on, and another user's "
                                         "outputs are linked (see \"query\", --as-software)");
        }
    }

    void sendOne(const Datagram &record) {
        const std::string bytes = tag_ + std::string(record.begin(), record.end());
        session_.data().send(bytes.data(), bytes.size());
    }

    bool trySend(const Datagram &record) {
        try {
            sendOne(record);
            return true;
        } catch (const std::runtime_error &) {
            return false;
        }
    }

    // Tries again for a while when nobody listens: the endpoint may be starting again. Who asks a
    // second time for the end does not wait for that.
    void letGo() {
        constexpr int kTimes = 3;
        constexpr Milliseconds kBetween(8);
        const auto end = Clock::now() + patience_;
        for (int times = 0; !release_.empty() && times < kTimes;) {
            bool left = true;
            for (const auto &[size, record] : release_) left = trySend(record) && left;
            times = left ? times + 1 : 0;
            if (!left && (Clock::now() >= end || interrupted > 1)) return;
            std::this_thread::sleep_for(kBetween);
        }
    }

    // Until the next record is due; a person who ends the program waits no longer than a slice.
    void pause(Milliseconds time) {
        constexpr Milliseconds kSlice(20);
        due_ = std::max(due_ + time, Clock::now());
        for (auto now = Clock::now(); now < due_; now = Clock::now()) {
            std::this_thread::sleep_until(std::min(due_, now + kSlice));
            if (interrupted != 0) due_ = now;
        }
    }

    Session session_;
    std::string tag_;
    const Milliseconds interval_, patience_;
    const unsigned repeat_;
    Clock::time_point due_ = Clock::now();
    std::map<std::size_t, Datagram> release_;  ///< of every kind of record, by its size, the last
};

void type(const Options &options, bool fromInput) {
    constexpr std::size_t kLongText = 200;
    std::string text = options.text, error;
    if (fromInput) text.assign(std::istreambuf_iterator<char>(std::cin), {});
    std::vector<Datagram> records;
    if (!typeText(text, records, error)) throw std::runtime_error(error);
    const bool progress = text.size() >= kLongText && isatty(STDERR_FILENO) != 0;
    Sender(options).send(records, progress ? "typing" : nullptr);
}

void pressKeys(const Options &options) {
    std::vector<Datagram> records;
    for (const std::string &combo : options.combos) {
        std::string error;
        const auto stroke = parseCombo(combo, error);
        if (!stroke) throw std::runtime_error(error);
        for (Datagram &record : strokeKey(*stroke)) records.push_back(std::move(record));
    }
    Sender(options).send(records);
}

void moveTo(const Options &options) {
    const auto record = absoluteRecord(options.position[0], options.position[1], kNoButton, 0);
    Sender(options).send({datagram(record)});
}

void moveByDistance(const Options &options) {
    if (options.asSoftware)
        throw std::runtime_error(
            "movements cannot be wrapped: the endpoint knows only keyboard "
            "and position records from software");
    Sender sender(options);
    if (!sender.session().link().relative)
        throw std::runtime_error(
            "the endpoint's mouse is in absolute mode, which takes no movements; use \"mouse move "
            "X Y\", or change it with \"mouse-mode rel\"");
    sender.send(moveBy(options.distance[0], options.distance[1]));
}

const std::map<std::string, Button> kButtons{
    {"left", kLeft}, {"right", kRight}, {"middle", kMiddle}};

void click(const Options &options) {
    Sender(options).send(
        clickAt(options.position[0], options.position[1], kButtons.at(options.button)));
}

void turnWheel(const Options &options) {
    Sender(options).send(wheelAt(options.position[0], options.position[1], options.notches));
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
    by->callback([&options] { moveByDistance(options); });

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

}  // namespace

void addRecordCommands(CLI::App &app, Options &options) {
    // A keyboard record is the whole state of the keyboard: once more does no harm.
    const auto repeatable = [&](CLI::App *command) {
        command->add_option("--repeat", options.repeat, "Send each record N times, against losses")
            ->type_name("N")
            ->check(CLI::Range(1, 10).description(""))
            ->capture_default_str();
    };
    auto *typing = app.add_subcommand("type", "Type a text (US layout)");
    auto *text = typing->add_option("text", options.text, "The text; standard input without it")
                     ->type_name("TEXT");
    repeatable(typing);
    typing->callback([&options, text] { type(options, text->count() == 0); });

    auto *key = app.add_subcommand("key", "Press keys, e.g. ctrl+alt+delete or f5");
    key->add_option("combo", options.combos, "Modifiers and one key, joined by +")
        ->required()
        ->type_name("COMBO...");
    repeatable(key);
    key->callback([&options] { pressKeys(options); });

    addMouse(app, options);
}

}  // namespace quillon
