#include "console/control/words.h"

#include <cstdio>

#include "terminal/printable.h"

namespace quillon {
namespace {

std::string holderWords(const EndpointStatus &status, const std::string &ownName) {
    if (status.settings && !permissionsOn(*status.settings))
        return "permissions are off: everybody may send";
    if (!status.holder) return "who controls it is not known yet";
    const Holder &holder = *status.holder;
    if (!holder.linked) return "nobody controls it";
    return "held by " + printable(holder.user) + (holder.user == ownName ? " (you)" : "") +
           ", level " + std::to_string(holder.level);
}

// Eight outputs have to have room on a line.
std::string outputWords(const std::vector<std::string> &outputs) {
    std::string words, network;
    for (const std::string &output : outputs) {
        const std::size_t dot = output.rfind('.');
        const bool same = dot != std::string::npos && output.substr(0, dot) == network;
        words += " " + printable(same ? output.substr(dot) : output);
        network = output.substr(0, dot);
    }
    return words.empty() ? " none" : words;
}

std::string onOff(bool on) {
    return on ? "on" : "off";
}

}  // namespace

std::string strokeWords(const Stroke &stroke) {
    const std::string modifiers = modifierNames(stroke.modifiers);
    if (stroke.usage == 0) return modifiers.empty() ? "all keys up" : modifiers;
    return (modifiers.empty() ? "" : modifiers + "+") + keyName(stroke.usage);
}

std::string whoWords(const EndpointStatus &status, const std::string &ownName) {
    std::string words = holderWords(status, ownName);
    if (status.settings && permissionsOn(*status.settings))
        words += " | outputs" + outputWords(linkedOutputs(*status.settings));
    return words;
}

std::string deviceWords(const EndpointStatus &status, const HealedInput &input) {
    char answers[32] = "does not answer";
    if (status.reachable)
        snprintf(answers, sizeof answers, "answers in %.1f ms",
                 static_cast<double>(status.roundTrip.count()) / 1000);
    std::string words = std::string(answers) + " | mouse: ";
    if (!status.link)
        words += "not known";
    else if (status.link->relative)
        words += "movements";
    else
        words += "positions on " + std::to_string(status.link->width) + "x" +
                 std::to_string(status.link->height);
    if (status.locks)
        words += " | caps " + onOff(status.locks->caps) + ", num " + onOff(status.locks->num);
    if (!(input.keyboard() == Stroke{})) words += " | down: " + strokeWords(input.keyboard());
    return words;
}

std::string whyNotTaken(const EndpointStatus &status, const std::string &address) {
    if (!status.reachable) return "the endpoint does not answer";
    if (!status.settings || !status.holder || !permissionsOn(*status.settings)) return "";
    if (!status.holder->linked) return "nobody is linked, and the endpoint may take nothing; apply";
    if (maySend(*status.settings, address) != MaySend::kNo) return "";
    return "the endpoint takes nothing from " + address + ": " + printable(status.holder->user) +
           " has control";
}

}  // namespace quillon
