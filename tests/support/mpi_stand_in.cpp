// Stands in for the SoC vendor's library, with one register; see mpi_test.cpp.

#include <cstdint>

#if QUILLON_MPI_ADDRESS_BITS == 32
using Address = std::uint32_t;
#else
using Address = std::uint64_t;
#endif

static unsigned word;

extern "C" {
void *HI_MPI_SYS_Mmap(Address address, unsigned size) {
    return address == 0x120F0100 && size == sizeof word ? &word : nullptr;
}

int HI_MPI_SYS_Munmap(void *address, unsigned size) {
    return address == &word && size == sizeof word ? 0 : -1;
}
}
