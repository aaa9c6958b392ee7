// The subcommands "type" and "key".

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "console/options.h"
#include "console/sender.h"
#include "protocol/us_layout.h"

namespace quillon {
namespace {

void type(const Options &options, bool fromInput) {
    constexpr std::size_t kLongText = 200;
    std::string text = options.text, error;
    if (fromInput) text.assign(std::istreambuf_iterator<char>(std::cin), {});
    std::vector<Stroke> states;
    if (!typeStrokes(text, states, error)) throw std::runtime_error(error);
    const bool progress = text.size() >= kLongText && isatty(STDERR_FILENO) != 0;
    Sender(options).send(recordsOf(states), progress ? "typing" : nullptr);
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

// A keyboard record is the whole state of the keyboard, so sending it again does no harm.
void addRepeat(CLI::App &command, Options &options) {
    command
        .add_option("--repeat", options.repeat,
                    "Send each record N times, for a network that loses some")
        ->type_name("N")
        ->check(CLI::Range(1, 10).description(""))
        ->capture_default_str();
}

}  // namespace

void addTypingCommands(CLI::App &app, Options &options) {
    auto *typing = app.add_subcommand("type", "Type a text on a computer with the US layout");
    auto *text =
        typing->add_option("text", options.text, "The text; without it, standard input is typed")
            ->type_name("TEXT");
    addRepeat(*typing, options);
    typing->callback([&options, text] { type(options, text->count() == 0); });

    auto *key = app.add_subcommand("key", "Press keys, e.g. ctrl+alt+delete or f5");
    key->add_option("combo", options.combos, "Modifiers and one key, joined by +")
        ->required()
        ->type_name("COMBO...");
    addRepeat(*key, options);
    key->callback([&options] { pressKeys(options); });
}

}  // namespace quillon
