// Any file of S-records: the upload takes a file that passes the check, for the same kind of board.

#include <stdexcept>

#include "flash/srecord.h"
#include "fuzz/world.h"
#include "myupdata.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    world::reset();
    const std::string text(reinterpret_cast<const char *>(bytes), size);
    FILE *file = fopen("upload.mot", "wb");
    fwrite(bytes, 1, size, file);
    fclose(file);
    MyUpdata upload("upload.mot");
    const bool taken = upload.FileCheckOut();
    try {
        const flash::Image image = flash::readImage(text);
        world::require(taken && upload.type_ == image.kind, "the same kind");
    } catch (const std::runtime_error &) {
        // Nothing is required then: the upload checks less.
    }
    return 0;
}
