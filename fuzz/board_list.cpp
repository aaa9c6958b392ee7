// Any list of boards from the microcontroller.

#include "fuzz/world.h"
#include "upload.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    world::reset();
    std::string list(reinterpret_cast<const char *>(bytes), size);
    l_isupdata = 2;
    world::onSleep = [] { l_isupdata = 0; };  // the upload ends at the first poll
    const bool taken = initUploadANDloop(list.data());
    const std::size_t length = strlen(list.c_str());
    world::require(taken == (length == 31 || length == 61), "the right lengths");
    return 0;
}
