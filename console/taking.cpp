// The subcommands that take control and give it up: "apply", "connect" and "disconnect".

#include "console/options.h"
#include "console/report.h"
#include <quillon/link_control.h>

namespace quillon {
namespace {

using Carry = LinkOutcome (*)(Session &, const LinkRequest &);

void request(const Options &options, Carry carryOut) {
    const Preferences preferred = preferencesOf(options);
    const std::string user = options.user.empty() ? preferred.user : options.user;
    if (user.empty()) throw CLI::RequiredError("--name");
    const auto level = options.level ? options.level : preferred.level;
    if (!level && carryOut != disconnectUser) throw CLI::RequiredError("--level");
    Session session = openSession(options);
    const std::string own = session.ownAddress();
    const LinkRequest wanted{conventionalName(user, own),
                             options.output.empty() ? own : options.output, level.value_or(0)};
    std::string why = objection(wanted, carryOut != disconnectUser);
    // A user who holds control by an old settings file may have a name that would be refused now.
    if (!why.empty() && objection(wanted, false).empty() && session.holder().user == wanted.name)
        why.clear();
    if (!why.empty()) throw CLI::ValidationError("--name", why);
    const LinkOutcome outcome = carryOut(session, wanted);
    Report report{{"result", outcome.result}};
    report.update(reportOf(outcome.holder));
    print(report, options.json);
}

}  // namespace

void addTakingCommands(CLI::App &app, Options &options) {
    const auto add = [&](const char *name, const char *help, Carry carryOut) {
        auto *added = app.add_subcommand(name, help);
        added
            ->add_option("--name", options.user,
                         "Name of the user, or else that of console.toml; the address of this "
                         "machine is put "
                         "before it")
            ->type_name("USER");
        added
            ->add_option("--level", options.level,
                         "Permission level, or else that of console.toml; a larger one is stronger")
            ->type_name("N");
        added->callback([&options, carryOut] { request(options, carryOut); });
        return added;
    };
    const auto addTaking = [&](const char *name, const char *help, Carry carryOut) {
        auto *added = add(name, help, carryOut);
        added->add_option("--output", options.output, "Console to link; without it, this machine")
            ->type_name("ADDRESS")
            ->check(CLI::ValidIPV4.description(""));
    };
    addTaking("apply", "Ask for control: a weaker holder loses it, any other holder is asked",
              applyUser);
    addTaking("connect", "Take control unless the holder is stronger; or link one more console",
              connectUser);
    add("disconnect", "Give control up", disconnectUser);
}

}  // namespace quillon
