// Any answers of the microcontroller while its boards are programmed.

#include "fuzz/world.h"
#include "upload.h"

namespace {

// A file of two records for a kind of board, 0 to 4.
void writeImage(int kind) {
    const char *const ends[] = {"000B", "010A", "0209", "0308", "0407"};
    FILE *file = fopen("upload.mot", "wb");
    fprintf(file, "S206000000AABB94\nS2050000ABC%s\n", ends[kind]);
    fclose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    world::reset();
    writeImage(input.ConsumeIntegralInRange(0, 4));
    const bool twenty = input.ConsumeBool();
    static char boards[20];
    for (char &board : boards) board = input.ConsumeBool() ? 1 : 0;
    const auto answers = world::chunks(input);
    world::onSleep = [&] {
        if (l_isupdata != 2) return;
        l_broadnum = twenty ? 20 : 10;
        l_broadstate = boards;
        l_isupdata = 1;
        world::serialInput = answers;
    };
    uploadFile("upload.mot");
    world::require(!world::sent.empty() && world::sent.back().size() < 256, "one reply");
    world::require(l_isupdata == 0, "idle again");
    return 0;
}
