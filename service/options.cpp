#include "service/options.h"

namespace service {
namespace {

void addFolder(CLI::App &app, std::string &folder) {
    app.add_option("--folder", folder, "Folder of the daemon's settings, quillon.ini")
        ->type_name("DIR")
        ->capture_default_str();
}

}  // namespace

void describeGuard(CLI::App &app, GuardOptions &options) {
    app.description("Keeps a copy of the daemon's settings that a power cut cannot take");
    app.fallthrough();  // --folder may also stand behind the command
    addFolder(app, options.folder);
    app.add_subcommand("restore",
                       "Put the copy back where the settings are missing, incomplete or older; "
                       "before each start of the daemon");
    app.add_subcommand("watch", "Copy the settings after each complete write, until a signal");
    app.add_subcommand("status", "Say whether settings and copy are complete and the same");
    app.require_subcommand(1);
}

void describeHealth(CLI::App &app, HealthOptions &options) {
    app.description(
        "Asks the daemon of this machine whether it answers. The exit status is 10 when it has its "
        "port and answers nobody, and has to be restarted");
    addFolder(app, options.folder);
    app.add_option("--patience", options.patience, "Seconds without an answer until it counts")
        ->type_name("N")
        ->check(CLI::Range(1, 600).description(""))
        ->capture_default_str();
}

void describeDoctor(CLI::App &app, DoctorOptions &options) {
    app.description(
        "Says whether this machine has what the daemon needs. The exit status is 1 when it has "
        "not");
    addFolder(app, options.folder);
    app.add_option("--user", options.user,
                   "Look as this user, with the capabilities of the service; without it as quillon "
                   "when root asks and there is such a user")
        ->type_name("NAME");
    app.add_flag("--without-memory", options.withoutMemory,
                 "The boot loader sets the pins, and the daemon does not get /dev/mem");
    app.add_flag("--no-chip", options.keepChipAlone, "Do not ask the chip");
}

void describeFence(CLI::App &app, FenceOptions &options) {
    app.description("Lets only the machines of a list reach the ports of the daemon");
    app.fallthrough();
    app.add_option("--file", options.file, "The list")->type_name("FILE")->capture_default_str();
    app.add_subcommand("check", "Say whether the list is right, and what is odd in it");
    app.add_subcommand("show", "Print the rules for nft that the list means");
    auto *apply = app.add_subcommand(
        "apply", "Put the rules in force; they go again after 60 s unless they are confirmed");
    apply->add_flag("--keep", options.keep, "Do not wait for a confirmation");
    app.add_subcommand("confirm", "Keep the rules that were applied in the last 60 s");
    app.add_subcommand("status", "Say whether the fence stands, and what it has turned away");
    app.add_subcommand("off", "Take the rules away");
    app.require_subcommand(1);
}

}  // namespace service
