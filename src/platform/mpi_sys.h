// The two calls of the SoC vendor's media library that the daemon makes. Which library provides
// them is chosen when the program is linked.
#pragma once

/// A physical address as the media library takes it, 64 bits also on the 32-bit board.
typedef unsigned long long MpiPhysicalAddress;

extern "C" {
/// Maps size bytes at a physical address; null on failure.
void *HI_MPI_SYS_Mmap(MpiPhysicalAddress address, unsigned int size);
/// Undoes the mapping: 0, or a negative error.
int HI_MPI_SYS_Munmap(void *address, unsigned int size);
}
