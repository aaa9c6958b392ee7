// The mapping calls of the media library, for a build without that library.

#include "kvm_comm.h"
#include "platform/mpi_sys.h"

void *HI_MPI_SYS_Mmap(MpiPhysicalAddress address, unsigned int size) {
    return hi_sys_io_mmap(address, size);
}

int HI_MPI_SYS_Munmap(void *address, unsigned int size) {
    return sample_sys_munmap(address, size);
}
