// The two calls of the SoC vendor's media library that the daemon makes. Which library provides
// them is chosen when the program is linked.
#pragma once

/// A physical address as the media library takes it. Most versions take 64 bits, also on a 32-bit
/// board. A version that takes 32 bits, called with 64, would read size from the wrong register.
#ifndef QUILLON_MPI_ADDRESS_BITS
#error "the build says how wide these addresses are"
#elif QUILLON_MPI_ADDRESS_BITS == 32
typedef unsigned int MpiPhysicalAddress;
#else
typedef unsigned long long MpiPhysicalAddress;
#endif

extern "C" {
/// Maps size bytes at a physical address; null on failure.
void *HI_MPI_SYS_Mmap(MpiPhysicalAddress address, unsigned int size);
/// Undoes the mapping: 0, or a negative error.
int HI_MPI_SYS_Munmap(void *address, unsigned int size);
}
