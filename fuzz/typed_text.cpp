// Any text, on layouts with and without dead keys.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/require.h"
#include "layouts/typing.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    using namespace quillon;
    static const Typist typists[] = {
        Typist({"us", ""}), Typist({"de", "", ComputerSystem::kWindows}), Typist({"gr", ""}),
        Typist({"fr", "", ComputerSystem::kX11}, LockKeys{true, true})};
    FuzzedDataProvider input(bytes, size);
    const Typist &typist = typists[input.ConsumeIntegralInRange<std::size_t>(0, 3)];
    const auto unicode = static_cast<UnicodeInput>(input.ConsumeIntegralInRange(0, 3));
    std::string error;
    const auto typed = typist.type(input.ConsumeRemainingBytesAsString(), unicode, error);
    fuzz::require(typed.has_value() == error.empty(), "states, or a reason");
    fuzz::require(!typed || typed->states.empty() || typed->states.back() == Stroke{},
                  "all keys up at the end");
    for (std::size_t i = 1; typed && i < typed->states.size(); ++i)
        fuzz::require(!(typed->states[i] == typed->states[i - 1]), "every state is another");
    return 0;
}
