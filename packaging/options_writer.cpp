// Writes what users read about the options of our programs from the programs' own option tables:
// the OPTIONS of a manual page, and the completion of a shell. Its output is in the tree, because a
// cross build cannot run it; scripts/options writes it again, and a test compares.
//
//   options_writer page FILE.scd     the page with its OPTIONS as they are now
//   options_writer completion NAME   the completion of a program for bash

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

#include "console/options.h"
#include "flash/options.h"
#include "gateway/options.h"
#include "service/options.h"
#include "sim/options.h"

namespace {

constexpr char kBegin[] = "; The options of the program, by scripts/options.\n";
constexpr char kEnd[] = "; The end of the options.\n";

// The values live as long as the parser that writes to them.
template <class Options>
std::function<void(CLI::App &)> by(void (*describe)(CLI::App &, Options &)) {
    return [describe](CLI::App &app) {
        static Options options;
        describe(app, options);
    };
}

const std::map<std::string, std::function<void(CLI::App &)>> kPrograms{
    {"quillon-board", by(sim::describe)},
    {"quillon-console", by(quillon::describe)},
    {"quillon-doctor", by(service::describeDoctor)},
    {"quillon-fence", by(service::describeFence)},
    {"quillon-flash", by(flash::describe)},
    {"quillon-gateway", by(gateway::describe)},
    {"quillon-guard", by(service::describeGuard)},
    {"quillon-health", by(service::describeHealth)},
};

void describeProgram(CLI::App &app, const std::string &name) {
    const auto program = kPrograms.find(name);
    if (program == kPrograms.end()) throw std::runtime_error(name + " is not one of the programs");
    app.name(name);
    app.set_version_flag("--version", name);
    program->second(app);
}

bool isNamed(const CLI::Option *option) {
    return !option->get_lnames().empty();
}

// What scdoc takes for formatting is taken as it stands.
std::string plain(const std::string &text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\' || c == '*' || c == '_') escaped += '\\';
        escaped += c == '\n' ? ' ' : c;
    }
    return escaped;
}

std::string sentence(std::string text) {
    if (!text.empty() && text.back() != '.') text += '.';
    return plain(text);
}

// Checks of ours have no names, which CLI11 would put behind a colon.
std::string valueOf(const CLI::Option *option) {
    return option->get_type_size() == 0 ? "" : option->get_type_name();
}

std::string usageOf(const CLI::App &app) {
    std::string usage;
    for (const CLI::Option *option : app.get_options())
        if (!isNamed(option)) {
            const std::string value = "_" + plain(valueOf(option)) + "_";
            usage += " " + (option->get_required() ? value : "[" + value + "]");
        }
    return usage;
}

void writeOptions(std::string &page, const CLI::App &app, const std::string &indent) {
    for (const CLI::Option *option : app.get_options()) {
        const std::string value = valueOf(option);
        if (isNamed(option)) {
            page += indent;
            for (const std::string &letter : option->get_snames()) page += "*-" + letter + "*, ";
            page += "*--" + option->get_lnames().front() + "*";
            if (!value.empty()) page += " _" + plain(value) + "_";
        } else {
            page += indent + "_" + plain(value) + "_";
        }
        page += "\n" + indent + "\t" + sentence(option->get_description());
        // A list stands in brackets.
        std::string usual = option->get_default_str();
        if (!usual.empty() && usual.front() == '[') usual = usual.substr(1, usual.size() - 2);
        if (!usual.empty() && !value.empty()) page += " Without it: " + plain(usual) + ".";
        page += "\n\n";
    }
}

void writeCommands(std::string &page, CLI::App &app, const std::string &before) {
    for (CLI::App *command : app.get_subcommands([](CLI::App *) { return true; })) {
        const std::string name = before + command->get_name();
        page += "*" + name + "*" + usageOf(*command) + "\n\t" +
                sentence(command->get_description()) + "\n\n";
        command->set_help_flag();  // all have the same
        writeOptions(page, *command, "\t");
        writeCommands(page, *command, name + " ");
    }
}

std::string optionsOf(const std::string &name) {
    CLI::App app;
    describeProgram(app, name);
    const bool hasCommands = !app.get_subcommands({}).empty();
    std::string text = "# SYNOPSIS\n\n*" + name + "* [_OPTIONS_]" + usageOf(app);
    // Beside a command of the person's own, those of the program have lines of their own.
    if (app.get_require_subcommand_min() > 0) text += " _COMMAND_";
    if (app.get_require_subcommand_min() == 0)
        for (const CLI::App *command : app.get_subcommands({}))
            text +=
                "++\n*" + name + " " + command->get_name() + "* [_OPTIONS_]" + usageOf(*command);
    text += "\n\n# OPTIONS\n\n";
    writeOptions(text, app, "");
    if (hasCommands) text += "# COMMANDS\n\n";
    writeCommands(text, app, "");
    return text;
}

std::string readFile(const std::string &path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string page(const std::string &path) {
    const std::string text = readFile(path);
    const std::size_t slash = path.rfind('/') + 1;
    const std::string name = path.substr(slash, path.find('.', slash) - slash);
    const std::size_t begin = text.find(kBegin), end = text.find(kEnd);
    if (begin == std::string::npos || end == std::string::npos || end < begin)
        throw std::runtime_error(path + " has no place for options");
    return text.substr(0, begin) + kBegin + "\n" + optionsOf(name) + text.substr(end);
}

// The words that may come, and what the options take that want a value.
std::string wordsOf(const CLI::App &app) {
    std::string words;
    for (const CLI::Option *option : app.get_options())
        for (const std::string &name : option->get_lnames()) words += " --" + name;
    for (const CLI::App *command : app.get_subcommands({})) words += " " + command->get_name();
    return words.substr(words.empty() ? 0 : 1);
}

void collectValues(const CLI::App &app, std::map<std::string, std::string> &values) {
    for (const CLI::Option *option : app.get_options())
        for (const std::string &name : option->get_lnames()) {
            const std::string value = valueOf(option);
            if (value.empty()) continue;
            const bool file = value == "FILE" || value == "WHAT", folder = value == "DIR";
            values["--" + name] = file ? "-f" : folder ? "-d" : "-W ''";
        }
    for (const CLI::App *command : app.get_subcommands({})) collectValues(*command, values);
}

// One line for each command: the words that may follow it, in its own place or in the program's.
void writePaths(std::string &text, CLI::App &app, const std::string &before,
                const std::string &general) {
    for (CLI::App *command : app.get_subcommands([](CLI::App *) { return true; })) {
        const std::string path =
            before.empty() ? command->get_name() : before + " " + command->get_name();
        text.append("        '").append(before).append(" ").append(command->get_name());
        text.append("') path='").append(path).append("' words='").append(wordsOf(*command));
        text.append(command->get_fallthrough() ? general : "").append("' ;;\n");
        writePaths(text, *command, path, general);
    }
}

std::string completion(const std::string &name) {
    CLI::App app;
    describeProgram(app, name);
    std::string function = "_" + name;
    std::replace(function.begin(), function.end(), '-', '_');
    std::map<std::string, std::string> values, byKind;
    collectValues(app, values);
    for (const auto &[option, kind] : values)
        byKind[kind] += (byKind[kind].empty() ? "" : "|") + option;
    std::string general, paths;
    for (const CLI::Option *option : app.get_options())
        for (const std::string &word : option->get_lnames())
            if (word != "help" && word != "version") general += " --" + word;
    writePaths(paths, app, "", general);

    std::string text =
        "# Completion of " + name + " for bash, by scripts/options.\n" + function +
        "() {\n    local now=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
        "    local words='" +
        wordsOf(app) + "'\n";
    if (!paths.empty())
        text +=
            "    local word path=\n    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
            "        case \"$path $word\" in\n" +
            paths + "        esac\n    done\n";
    text += "    case $before in\n";
    for (const auto &[kind, options] : byKind) {
        text.append("    ").append(options).append(") mapfile -t COMPREPLY < <(compgen ");
        text.append(kind).append(" -- \"$now\") ;;\n");
    }
    text += "    *) mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$now\") ;;\n    esac\n}\n";
    return text + "complete -o default -F " + function + " " + name + "\n";
}

}  // namespace

int main(int argc, char **argv) {
    try {
        const std::string what = argc == 3 ? argv[1] : "";
        if (what != "page" && what != "completion")
            throw std::runtime_error("usage: options_writer page FILE.scd | completion NAME");
        fputs((what == "page" ? page(argv[2]) : completion(argv[2])).c_str(), stdout);
        return 0;
    } catch (const std::exception &error) {
        fprintf(stderr, "options_writer: %s\n", error.what());
        return 1;
    }
}
