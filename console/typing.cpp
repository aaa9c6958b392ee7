// The subcommands "type" and "key".

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "console/lock_guard.h"
#include "console/options.h"
#include "console/sender.h"
#include "layouts/typing.h"
#include "terminal/printable.h"

namespace quillon {
namespace {

const std::map<std::string, UnicodeInput> kUnicodeInputs{{"linux", UnicodeInput::kLinux},
                                                         {"windows", UnicodeInput::kWindows},
                                                         {"skip", UnicodeInput::kSkip}};

// Sees to the lock keys, and types.
void send(const Options &options, const TypedText &typed, bool progress) {
    Sender sender(options);
    LockGuard locks(sender.session(), options.asSoftware);
    if (!options.keepLocks && !typed.states.empty()) locks.require(false, typed.needsNumLock);
    sender.send(recordsOf(typed.states), progress ? "typing" : nullptr);
    locks.restore();
}

void type(const Options &options, bool fromInput) {
    constexpr std::size_t kLongText = 200;
    if (listLayouts(options)) return;
    std::string text = options.text, error;
    if (fromInput) text.assign(std::istreambuf_iterator<char>(std::cin), {});
    std::optional<LockKeys> locks;
    if (options.keepLocks) {
        Session session = openSession(options);
        locks = certainLockKeys(session);
    }
    const UnicodeInput unicode =
        options.unicode.empty() ? UnicodeInput::kRefuse : kUnicodeInputs.at(options.unicode);
    const auto typed = Typist(layoutOf(options), locks).type(text, unicode, error);
    if (!typed) throw std::runtime_error(error + "; nothing was typed");
    if (locks && typed->needsNumLock && !locks->num)
        throw std::runtime_error("the text needs Num Lock, which is off; nothing was typed");
    send(options, *typed, text.size() >= kLongText && isatty(STDERR_FILENO) != 0);
    for (const std::string &skipped : typed->skipped)
        fprintf(stderr, "quillon-console: left out %s\n", printable(skipped).c_str());
    if (!typed->skipped.empty()) throw std::runtime_error("not everything could be typed");
}

void pressKeys(const Options &options) {
    if (listLayouts(options)) return;
    const Typist typist(layoutOf(options));
    std::vector<Datagram> records;
    for (const std::string &combo : options.combos) {
        std::string error;
        const auto stroke = parseCombo(combo, error, keyOf(typist));
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
    auto *typing = app.add_subcommand("type", "Type a text");
    auto *text =
        typing->add_option("text", options.text, "The text; without it, standard input is typed")
            ->type_name("TEXT");
    addLayoutOptions(*typing, options);
    typing
        ->add_option("--unicode", options.unicode,
                     "How to type what the layout lacks: linux (Ctrl+Shift+U and digits), windows "
                     "(Alt and digits) or skip; without it nothing is typed then")
        ->type_name("HOW")
        ->check(CLI::IsMember(kUnicodeInputs).description(""));
    typing->add_flag("--keep-locks", options.keepLocks,
                     "Leave Caps Lock and Num Lock of the computer as they are");
    addRepeat(*typing, options);
    typing->callback([&options, text] { type(options, text->count() == 0); });

    auto *key = app.add_subcommand("key", "Press keys, e.g. ctrl+alt+delete or f5");
    key->add_option("combo", options.combos,
                    "Modifiers and one key, joined by +; usage:0x14 is a position on the keyboard")
        ->type_name("COMBO...");
    addLayoutOptions(*key, options);
    addRepeat(*key, options);
    key->callback([&options] {
        if (options.combos.empty() && options.layout != "list") throw CLI::RequiredError("combo");
        pressKeys(options);
    });
}

}  // namespace quillon
