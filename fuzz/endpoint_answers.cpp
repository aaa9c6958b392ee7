// Any answer of an endpoint to a console, read, and printed as text and as JSON. No byte that is
// printed may be a control character, except the end of a line.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "console/report.h"
#include "fuzz/require.h"

namespace {

using namespace quillon;

void requirePlain(const Report &report) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *printed = open_memstream(&text, &size), *before = stdout;
    stdout = printed;
    print(report, false);
    print(report, true);
    printTable({report, report}, false);
    stdout = before;
    fclose(printed);
    for (std::size_t i = 0; i < size; ++i)
        fuzz::require(text[i] == '\n' || (text[i] >= ' ' && text[i] <= '~'), "plain text");
    free(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    const std::string answer(reinterpret_cast<const char *>(bytes), size);
    if (const auto link = parseLink(answer)) {
        requirePlain(reportOf(*link));
        fuzz::require(link->width >= 0 && link->width <= 65535, "a width that a record can hold");
    }
    if (const auto keys = parseLockKeys(answer)) requirePlain(reportOf(*keys));
    if (const auto holder = parseHolder(answer)) requirePlain(reportOf(*holder));
    if (const auto message = parseLinkMessage(answer)) requirePlain(reportOf(*message));
    parseUsbLinked(answer);
    const Settings settings = parseSettings(answer);
    requirePlain(reportOf(settings));
    fuzz::require(linkedOutputs(settings).size() <= 8, "eight outputs at most");
    if (!permissionsOn(settings))
        fuzz::require(maySend(settings, "192.168.1.20") == MaySend::kYes, "everybody may send");
    return 0;
}
