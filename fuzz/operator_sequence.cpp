// Any operator commands, one per chunk; the link table and the settings stay consistent.

#include "fuzz/invariants.h"
#include "fuzz/world.h"
#include "main/operator_loop.h"
#include "state.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    world::reset();
    per = true;
    version = input.ConsumeBool();
    for (const std::string &command : world::chunks(input)) {
        char text[kOperatorDatagram + 1] = {};
        memcpy(text, command.data(), command.size());
        // The same bytes answer an "apply", and are the chip's status in a USB-link test.
        world::datagrams = {command};
        world::serialInput = {command};
        handleOperatorCommand(world::socket(), text);
        checkLinkTable();
    }
    checkSettings();
    return 0;
}
