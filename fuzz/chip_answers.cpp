// Any answer of the HID chip, to each question that the daemon asks it.

#include "cmd_ch9329.h"
#include "fuzz/world.h"
#include "main/chip_setup.h"
#include "main/forwarding.h"
#include "state.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    world::reset();
    version = input.ConsumeBool();
    const int question = input.ConsumeIntegralInRange(0, 5);
    world::serialInput = world::chunks(input);
    char reply[kReplyRoom] = {};
    int count = 0;
    bool caps = false, num = false, scroll = false;
    switch (question) {
        case 0:
            world::require(!cntRead(reply, &count, 64, 0) || count > 0, "something was read");
            world::require(count >= 0 && count <= kReplyRoom, "within the room");
            break;
        case 1:
            queryKeyLock(&caps, &num, &scroll);
            break;
        case 2:
            cmd_get_info();
            break;
        case 3:
            if (ch9329Rata(reply) == 1 && getRate(reply, kParameterFrame) == 9600)
                setBaudRate(reply, kParameterFrame);
            break;
        case 4:
            query_usb_link();
            break;
        default:
            resetCH9329();
    }
    return 0;
}
