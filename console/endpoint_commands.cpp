// Commands that ask an endpoint, and set it.

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "console/options.h"
#include "console/report.h"
#include <quillon/discovery.h>

namespace quillon {
namespace {

// "caps=on num=off"; what is not named stays as it is.
LockKeys wantedKeys(const std::vector<std::string> &words, LockKeys keys) {
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
    print(reportOf(session.lockKeys()), options.json);
}

void showEndpoints(const Options &options) {
    const Discovery discovery =
        discover(options.from, std::chrono::milliseconds(options.timeoutMs));
    if (discovery.found().empty()) throw std::runtime_error("no endpoint answered");
    std::vector<Report> reports;
    reports.reserve(discovery.found().size());
    for (const auto &[address, holder] : discovery.found()) {
        reports.push_back({{"address", address}});
        reports.back().update(reportOf(holder));
    }
    printTable(reports, options.json);
    if (discovery.surplus() != 0)
        fprintf(stderr, "quillon-console: %u further answers are not shown\n", discovery.surplus());
}

void showUsbLink(const Options &options) {
    auto session = openSession(options);
    print({{"computer", session.usbLinked()}}, options.json);
}

void addQuestions(CLI::App &app, Options &options) {
    const auto command = [&](const char *name, const char *help, auto carryOut) {
        auto *added = app.add_subcommand(name, help);
        added->callback([&options, carryOut] { carryOut(options); });
        return added;
    };
    command("link", "Picture size and mouse mode",
            [](const Options &o) { print(reportOf(openSession(o).link()), o.json); });
    command("leds", "Caps Lock and Num Lock of the computer",
            [](const Options &o) { print(reportOf(openSession(o).lockKeys()), o.json); });
    command("query", "Who controls the endpoint",
            [](const Options &o) { print(reportOf(openSession(o).holder()), o.json); });
    command("discover", "All endpoints on the network; needs no --to", showEndpoints);
    command("usb-link", "Is a computer attached? Strokes Num Lock to see", showUsbLink);
    command("settings", "The endpoint's settings", [](const Options &o) {
        auto session = openSession(o);
        print(reportOf(o.viaGroup ? session.settingsViaGroup() : session.settings()), o.json);
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
           [](Session &s, bool on) { s.setMouseMode(on); });
    choice("permissions", "Only linked consoles may send", "on", "off",
           [](Session &s, bool on) { s.setPermissions(on); });
    choice("usb-power", "Power of the computer's USB line", "on", "off",
           [](Session &s, bool on) { s.setUsbPower(on); });
}

}  // namespace

Session openSession(const Options &options) {
    if (options.to.empty()) throw CLI::RequiredError("--to");
    return {options.to, options.port, options.from, std::chrono::milliseconds(options.timeoutMs)};
}

void addEndpointCommands(CLI::App &app, Options &options) {
    addQuestions(app, options);
    addSwitches(app, options);
}

}  // namespace quillon
