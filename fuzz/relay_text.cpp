// What one console passes on to another.

#include <cstdint>

#include "require.h"
#include "watch_relay.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(bytes), size);
    if (const auto datagram = console::parseRelayText(text)) {
        const auto again = console::parseRelayText(console::relayText(*datagram));
        fuzz::require(again && again->text == datagram->text && again->sender == datagram->sender &&
                          again->senderPort == datagram->senderPort,
                      "the same comes back");
    }
    const auto passed = console::parseRelayText(console::relayText({text, "192.168.1.10", 41303}));
    fuzz::require(passed && passed->text == text, "every text passes");
    return 0;
}
