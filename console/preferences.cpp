#include "console/preferences.h"

#include <toml++/toml.h>

#include <cstdlib>
#include <stdexcept>

#include "terminal/config_text.h"

namespace quillon {
namespace {

[[noreturn]] void complain(const std::string &file, const toml::source_region &where,
                           const std::string &why) {
    throw std::runtime_error(file + ", line " + std::to_string(where.begin.line) + ": " + why);
}

// A text of the table, if it has one; keys of other types are mistakes.
void take(const std::string &file, const toml::table &table, const char *key, std::string &into) {
    const toml::node *node = table.get(key);
    if (node == nullptr || !into.empty()) return;
    if (!node->is_string()) complain(file, node->source(), std::string(key) + " is not a text");
    into = node->as_string()->get();
}

void takeTable(const std::string &file, const toml::table &table, Preferences &into) {
    for (const auto &[key, node] : table) {
        bool known = false;
        for (const char *name : {"layout", "variant", "system", "name", "level"})
            known = known || key.str() == name;
        if (!known)
            complain(file, key.source(),
                     "unknown key \"" + std::string(key.str()) +
                         "\"; there are layout, variant, system, name and level");
    }
    // A variant belongs to the layout beside it.
    if (const toml::node *variant = table.get("variant"); variant && !table.contains("layout"))
        complain(file, variant->source(), "a variant needs its layout beside it");
    if (into.layout.empty()) take(file, table, "variant", into.variant);
    take(file, table, "layout", into.layout);
    take(file, table, "system", into.system);
    take(file, table, "name", into.user);
    if (const toml::node *level = table.get("level"); level != nullptr && !into.level) {
        const auto number = level->value_exact<std::int64_t>();
        if (!number || *number != static_cast<int>(*number))
            complain(file, level->source(), "level is not a whole number, or too large");
        into.level = static_cast<int>(*number);
    }
}

const toml::table *tableOf(const std::string &file, const toml::node *node, const char *what) {
    if (node == nullptr) return nullptr;
    if (!node->is_table()) complain(file, node->source(), std::string(what) + " is not a table");
    return node->as_table();
}

}  // namespace

std::string preferencesFile() {
    constexpr char kName[] = "/quillon/console.toml";
    const char *config = getenv("XDG_CONFIG_HOME"), *home = getenv("HOME");
    // As its standard says, a folder that is not absolute does not count.
    if (config != nullptr && config[0] == '/') return config + std::string(kName);
    return home != nullptr && home[0] == '/' ? home + std::string("/.config") + kName : "";
}

Preferences readPreferences(const std::string &file, const std::string &endpoint) {
    Preferences preferences;
    if (file.empty()) return preferences;
    const std::string text = readConfigText(file).value_or("");
    try {
        const toml::table all = toml::parse(text, file);
        for (const auto &[key, node] : all)
            if (key.str() != "endpoint" && key.str() != "default")
                complain(file, key.source(),
                         "unknown table \"" + std::string(key.str()) +
                             "\"; there are endpoint and default");
        if (const auto *endpoints = tableOf(file, all.get("endpoint"), "endpoint"))
            if (const auto *own = tableOf(file, endpoints->get(endpoint), "endpoint"))
                takeTable(file, *own, preferences);
        if (const auto *others = tableOf(file, all.get("default"), "default"))
            takeTable(file, *others, preferences);
    } catch (const toml::parse_error &error) {
        complain(file, error.source(), std::string(error.description()));
    }
    return preferences;
}

LayoutChoice layoutOf(const Preferences &commandLine, const char *environment,
                      const Preferences &file) {
    LayoutChoice choice;
    const std::string variable = environment != nullptr ? environment : "";
    if (!commandLine.layout.empty()) {
        choice.layout = commandLine.layout;
        choice.variant = commandLine.variant;
    } else if (!variable.empty()) {
        const std::size_t open = variable.find('(');
        choice.layout = variable.substr(0, open);
        if (open != std::string::npos && variable.back() == ')')
            choice.variant = variable.substr(open + 1, variable.size() - open - 2);
        else if (open != std::string::npos)
            throw std::runtime_error("QUILLON_LAYOUT has no \")\" at its end");
    } else if (!file.layout.empty()) {
        choice.layout = file.layout;
        choice.variant = file.variant;
    }
    // Alone it is a variant of the layout that counts anyway.
    if (commandLine.layout.empty() && !commandLine.variant.empty())
        choice.variant = commandLine.variant;
    const std::string system = !commandLine.system.empty() ? commandLine.system : file.system;
    if (system.empty()) return choice;
    const auto found = kSystemNames.find(system);
    if (found == kSystemNames.end())
        throw std::runtime_error("there is no system \"" + system +
                                 "\"; there are console, windows and x11");
    choice.system = found->second;
    return choice;
}

}  // namespace quillon
