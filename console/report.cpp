#include "console/report.h"

#include <algorithm>
#include <cstdio>

#include "terminal/printable.h"

namespace quillon {
namespace {

std::string inWords(const Report &value) {
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    return value.is_string() ? printable(value.get<std::string>()) : value.dump();
}

void printJson(const Report &report) {
    // What an endpoint sends need not be UTF-8; and in ASCII no byte of it is a terminal's command.
    constexpr bool kOnlyAscii = true;
    puts(report.dump(-1, ' ', kOnlyAscii, Report::error_handler_t::replace).c_str());
}

}  // namespace

Report reportOf(const Link &link) {
    return {{"width", link.width},
            {"height", link.height},
            {"mouse", link.relative ? "relative" : "absolute"}};
}

Report reportOf(const LockKeys &keys) {
    return {{"caps", keys.caps ? "on" : "off"}, {"num", keys.num ? "on" : "off"}};
}

Report reportOf(const Holder &holder) {
    return {{"endpoint", holder.endpoint},
            {"linked", holder.linked},
            {"user", holder.user},
            {"level", holder.level}};
}

Report reportOf(const Settings &settings) {
    Report report = Report::object();
    for (const auto &[key, value] : settings) report[key] = value;
    return report;
}

Report reportOf(const LinkMessage &message) {
    // In the order of LinkMessage::Kind.
    constexpr const char *kWords[] = {"connect", "disconnect", "apply", "reply"};
    Report report{{"message", kWords[message.kind]}, {"endpoint", message.endpoint}};
    if (message.kind == LinkMessage::kReply) {
        report["code"] = message.code;
        return report;
    }
    report["user"] = message.user;
    if (message.kind != LinkMessage::kAsked) report["level"] = message.level;
    return report;
}

void print(const Report &report, bool asJson) {
    if (asJson) {
        printJson(report);
        return;
    }
    std::size_t widest = 0;
    for (const auto &[key, value] : report.items()) widest = std::max(widest, key.size());
    for (const auto &[key, value] : report.items())
        printf("%-*s  %s\n", static_cast<int>(widest), printable(key).c_str(),
               inWords(value).c_str());
}

void printTable(const std::vector<Report> &reports, bool asJson) {
    constexpr int kColumn = 17;
    for (const Report &report : reports) {
        if (asJson) {
            printJson(report);
            continue;
        }
        if (&report == &reports.front()) {
            for (const auto &[key, value] : report.items())
                printf("%-*s ", kColumn, printable(key).c_str());
            printf("\n");
        }
        for (const auto &[key, value] : report.items())
            printf("%-*s ", kColumn, inWords(value).c_str());
        printf("\n");
    }
}

}  // namespace quillon
