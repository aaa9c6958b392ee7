// Operators' commands, one per chunk, against the link table's invariants and the settings.

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
        // An answer for "apply", and a status for the USB-link test.
        world::datagrams = {command};
        world::serialInput = {command};
        handleOperatorCommand(world::socket(), text);
        checkLinkTable();
    }
    checkSettings();
    return 0;
}
