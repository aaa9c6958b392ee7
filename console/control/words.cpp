#include "console/control/words.h"

#include <cstdio>

namespace quillon {
namespace {

std::string onOff(bool on) {
    return on ? "on" : "off";
}

}  // namespace

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
    if (!(input.keyboard() == Stroke{})) words += " | down: " + strokeName(input.keyboard());
    return words;
}

}  // namespace quillon
