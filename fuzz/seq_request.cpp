// The four lines of a USB-link request.

#include "fuzz/world.h"
#include "kvm_comm.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    std::string text(reinterpret_cast<const char *>(bytes), size);
    char target[16] = {}, answerTo[16] = {};
    int port = 0;
    get_seq_ip(text.data(), target, answerTo, &port);
    world::require(memchr(target, 0, sizeof target) != nullptr, "target's end");
    world::require(memchr(answerTo, 0, sizeof answerTo) != nullptr, "answer address's end");
    return 0;
}
