// The subcommands that set something: "set-leds", "mouse-mode", "permissions" and "usb-power".

#include "console/options.h"
#include "console/report.h"

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

}  // namespace

void addSwitchCommands(CLI::App &app, Options &options) {
    auto *leds = app.add_subcommand("set-leds", "Switch Caps Lock and Num Lock of the computer");
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
    choice("mouse-mode", "Choose whether the mouse sends movements (rel) or positions (abs)", "rel",
           "abs", [](Session &s, bool on) { s.setMouseMode(on); });
    choice("permissions", "With on, an endpoint takes records only from the outputs of one user",
           "on", "off", [](Session &s, bool on) { s.setPermissions(on); });
    choice("usb-power", "Switch the power of the computer's USB line", "on", "off",
           [](Session &s, bool on) { s.setUsbPower(on); });
}

}  // namespace quillon
