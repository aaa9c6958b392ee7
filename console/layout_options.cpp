// The options for the computer's keyboard layout.

#include <cstdlib>

#include "console/options.h"
#include "console/report.h"
#include "layouts/database.h"

namespace quillon {

Preferences preferencesOf(const Options &options) {
    return readPreferences(preferencesFile(), options.to);
}

LayoutChoice layoutOf(const Options &options) {
    Preferences commandLine;
    commandLine.layout = options.layout;
    commandLine.variant = options.variant;
    commandLine.system = options.system;
    return layoutOf(commandLine, getenv("QUILLON_LAYOUT"), preferencesOf(options));
}

void addLayoutOptions(CLI::App &command, Options &options) {
    command
        .add_option("--layout", options.layout,
                    "Keyboard layout of the computer, e.g. de; \"list\" prints all. Without it "
                    "$QUILLON_LAYOUT counts, then console.toml, then us")
        ->type_name("LAYOUT");
    command.add_option("--variant", options.variant, "Variant of the layout, e.g. nodeadkeys")
        ->type_name("VARIANT");
    command
        .add_option("--system", options.system,
                    "What dead keys do on the computer: x11 (the default), console or windows")
        ->type_name("SYSTEM")
        ->check(CLI::IsMember(kSystemNames).description(""));
}

bool listLayouts(const Options &options) {
    if (options.layout != "list") return false;
    for (const LayoutEntry &entry : layoutDatabase()) {
        if (options.json)
            print({{"layout", entry.layout}, {"variant", entry.variant}, {"name", entry.name}},
                  true);
        else
            printf("%-12s %-24s %s\n", entry.layout.c_str(), entry.variant.c_str(),
                   entry.name.c_str());
    }
    return true;
}

}  // namespace quillon
