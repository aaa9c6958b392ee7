// Any bytes from a terminal, in any pieces.

#include "terminal/terminal_input.h"

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/require.h"

namespace {

using quillon::TerminalEvent;

void check(const std::vector<TerminalEvent> &events) {
    for (const TerminalEvent &event : events) {
        const bool key = event.kind <= TerminalEvent::kRelease;
        fuzz::require(!key || event.key != 0, "a key that there is");
        fuzz::require(
            event.character == 0 || (event.character >= ' ' && event.character <= 0x10FFFF),
            "a character that is one");
        fuzz::require(event.kind != TerminalEvent::kMouse || (event.row >= 0 && event.column >= 0),
                      "a cell of the screen");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    quillon::TerminalInput terminal;
    while (input.remaining_bytes() > 0) {
        check(terminal.take(input.ConsumeRandomLengthString()));
        if (input.ConsumeBool()) check(terminal.flush());
    }
    check(terminal.flush());
    check(terminal.flush());
    fuzz::require(!terminal.pending(), "nothing waits for ever");
    return 0;
}
