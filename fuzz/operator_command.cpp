// Any single datagram of an operator.

#include "fuzz/invariants.h"
#include "fuzz/world.h"
#include "main/operator_loop.h"
#include "state.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    world::reset();
    per = true;
    char text[kOperatorDatagram + 1] = {};
    memcpy(text, bytes, std::min<std::size_t>(size, kOperatorDatagram));
    handleOperatorCommand(world::socket(), text);
    checkLinkTable();
    checkSettings();
    return 0;
}
