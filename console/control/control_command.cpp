// The command that takes a whole terminal.

#include <cstdlib>

#include "console/control/control.h"
#include "console/interrupt.h"
#include "console/options.h"

namespace quillon {
namespace {

void start(const Options &options) {
    if (listLayouts(options)) return;
    if (options.to.empty()) throw CLI::RequiredError("--to");
    ControlOptions control;
    std::string error;
    const auto escape = parseCombo(options.escape, error);
    if (!escape) throw CLI::ValidationError("--escape", error);
    if (escape->usage == 0)
        throw CLI::ValidationError("--escape", "holds only modifiers, and no key");
    // Terminals do not tell the sides of modifiers.
    constexpr unsigned kSide = 4, kLeftBits = 0x0F;
    control.escape = *escape;
    control.escape.modifiers =
        static_cast<std::uint8_t>((escape->modifiers | escape->modifiers >> kSide) & kLeftBits);
    control.escapeName = options.escape;
    control.layout = layoutOf(options);
    control.endpoint.to = options.to;
    control.endpoint.from = options.from;
    control.endpoint.port = options.port;
    control.endpoint.pace = std::chrono::milliseconds(options.intervalMs);
    control.endpoint.asSoftware = options.asSoftware;
    const Preferences preferred = preferencesOf(options);
    control.user = options.user.empty() ? preferred.user : options.user;
    if (const char *login = getenv("USER"); control.user.empty())
        control.user = login != nullptr && *login != '\0' ? login : "console";
    control.level = (options.level ? options.level : preferred.level).value_or(0);
    control.apply = options.apply;
    catchSignals();
    quillon::control(control, interrupted);
}

}  // namespace

void addControlCommand(CLI::App &app, Options &options) {
    auto *control = app.add_subcommand(
        "control", "Use the keys and the mouse of this terminal on the computer");
    control
        ->add_option(
            "--name", options.user,
            "Name of the user who asks for control; without it that of console.toml, or $USER")
        ->type_name("USER");
    control
        ->add_option("--level", options.level,
                     "Permission level, or else that of console.toml; a larger one is stronger")
        ->type_name("N");
    addLayoutOptions(*control, options);
    control->add_flag("--apply", options.apply, "Ask for control at the start");
    control
        ->add_option("--escape", options.escape,
                     "Key that opens the menu; it is the only one that does not reach the computer")
        ->type_name("KEY")
        ->capture_default_str();
    control->callback([&options] { start(options); });
}

}  // namespace quillon
