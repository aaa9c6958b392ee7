// Any datagram of a console, for each chip and mode, with any answer of the chip.

#include "fuzz/world.h"
#include "main/data_server.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    world::reset();
    version = input.ConsumeBool();
    rel_enable = input.ConsumeBool();
    per = input.ConsumeBool();
    query_link = input.ConsumeBool();
    vi_w = input.ConsumeIntegral<std::uint16_t>();
    vi_h = input.ConsumeIntegral<std::uint16_t>();
    const std::string datagram =
        input.ConsumeBytesAsString(input.ConsumeIntegralInRange<std::size_t>(1, kConsoleDatagram));
    if (datagram.empty()) return 0;
    world::serialInput = world::chunks(input);
    ConsoleServer server;
    char buffer[kConsoleBuffer] = {};
    memcpy(buffer, datagram.data(), datagram.size());
    handleConsoleDatagram(server, world::socket(), "192.168.1.20", buffer,
                          static_cast<int>(datagram.size()));
    return 0;
}
