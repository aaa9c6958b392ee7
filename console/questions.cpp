// The subcommands that ask: "link", "leds", "query", "discover", "usb-link" and "settings".

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "console/options.h"
#include "console/report.h"
#include <quillon/discovery.h>

namespace quillon {
namespace {

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

}  // namespace

void addQuestionCommands(CLI::App &app, Options &options) {
    const auto command = [&](const char *name, const char *help, auto carryOut) {
        auto *added = app.add_subcommand(name, help);
        added->callback([&options, carryOut] { carryOut(options); });
        return added;
    };
    command("link", "Show the picture size and the mouse mode",
            [](const Options &o) { print(reportOf(openSession(o).link()), o.json); });
    command("leds", "Show whether Caps Lock and Num Lock of the computer are on",
            [](const Options &o) { print(reportOf(openSession(o).lockKeys()), o.json); });
    command("query", "Show which user holds control of the endpoint",
            [](const Options &o) { print(reportOf(openSession(o).holder()), o.json); });
    command("discover", "List the endpoints on the network; needs no --to", showEndpoints);
    command("usb-link", "Test whether a computer is on the USB cable; presses Num Lock for that",
            showUsbLink);
    command("settings", "Show the settings of the endpoint",
            [](const Options &o) {
                auto session = openSession(o);
                print(reportOf(o.viaGroup ? session.settingsViaGroup() : session.settings()),
                      o.json);
            })
        ->add_flag("--via-group", options.viaGroup,
                   "Let the endpoint send them to all endpoints, and read them there");
}

}  // namespace quillon
