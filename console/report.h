// What the console prints: words for a person, or one JSON object per line.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "protocol/answers.h"
#include "protocol/link_messages.h"

namespace quillon {

using Report = nlohmann::ordered_json;

Report reportOf(const Link &link);
Report reportOf(const LockKeys &keys);
Report reportOf(const Holder &holder);
Report reportOf(const Settings &settings);
Report reportOf(const LinkMessage &message);

/// One report: a line for each of its fields, or one object.
void print(const Report &report, bool asJson);
/// Several of the same fields: a table with a heading, or an object per line.
void printTable(const std::vector<Report> &reports, bool asJson);

}  // namespace quillon
