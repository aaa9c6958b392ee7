// The subcommand "mouse".

#include <map>
#include <stdexcept>

#include "console/options.h"
#include "console/sender.h"

namespace quillon {
namespace {

void moveTo(const Options &options) {
    const auto record = absoluteRecord(options.position[0], options.position[1], kNoButton, 0);
    Sender(options).send({datagram(record)});
}

void moveByDistance(const Options &options) {
    if (options.asSoftware)
        throw std::runtime_error(
            "movements cannot be sent with --as-software: an endpoint takes only "
            "keyboard and position records from software");
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

}  // namespace

void addMouseCommands(CLI::App &app, Options &options) {
    auto *mouse = app.add_subcommand("mouse", "Move the pointer, click, turn the wheel");
    mouse->require_subcommand(1);
    const auto at = [&](CLI::App *command) {
        command->add_option("--at", options.position, "Position in pixels of the picture")
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

    auto *by = mouse->add_subcommand("by", "Move by a distance, in relative mouse mode");
    by->add_option("distance", options.distance, "Distance")
        ->type_name("DX DY")
        ->expected(2)
        ->required();
    by->callback([&options] { moveByDistance(options); });

    auto *clicking = mouse->add_subcommand("click", "Click a button: left, right or middle");
    clicking->add_option("button", options.button, "The button")
        ->required()
        ->type_name("BUTTON")
        ->check(CLI::IsMember(kButtons).description(""));
    at(clicking);
    clicking->callback([&options] { click(options); });

    auto *wheel = mouse->add_subcommand("wheel", "Turn the wheel; a positive number turns it up");
    wheel->add_option("notches", options.notches, "Number of notches")
        ->required()
        ->type_name("N")
        ->check(CLI::Range(-10000, 10000).description(""));
    at(wheel);
    wheel->callback([&options] { turnWheel(options); });
}

}  // namespace quillon
