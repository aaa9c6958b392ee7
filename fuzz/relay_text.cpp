// The text in which one console passes a datagram on to another.

#include <cstdint>

#include "client/watch_relay.h"
#include "fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(bytes), size);
    if (const auto datagram = quillon::parseRelayText(text)) {
        const auto again = quillon::parseRelayText(quillon::relayText(*datagram));
        fuzz::require(again && again->text == datagram->text && again->sender == datagram->sender &&
                          again->senderPort == datagram->senderPort,
                      "the same comes back");
    }
    const auto passed = quillon::parseRelayText(quillon::relayText({text, "192.168.1.10", 41303}));
    fuzz::require(passed && passed->text == text, "every text passes");
    return 0;
}
