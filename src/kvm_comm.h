// The endpoint's own address, the addresses in an operator command, and access to physical
// registers through /dev/mem.
#pragma once

#include <string>

/// Parses a "[seq]" request: the second line holds the endpoint's address after '=', the third the
/// answer address after '=', then ':' and the answer port. Both addresses have room for 16
/// characters. False for fewer than four lines, a missing '=' or ':', an address over 15
/// characters, or a third line of 18 characters or fewer; seqIp may have been written then.
bool get_seq_ip(char *msg, char *seqIp, char *answerIp, int *answerPort);

/// This endpoint's address, the value of kEth0Ip in /data/net.ini, or the text "kEth0Ip" when the
/// file has none. Tries every 2 s until a shell can be started.
std::string GetLocalIp();

/// Result of a register read whose output pointer is null: the SoC system module's null-pointer
/// code.
constexpr int kNullPointer = static_cast<int>(0xA0028006);

/// Maps size bytes at a physical address and returns a pointer to phy_addr itself. On failure it
/// prints the error and returns null.
void *hi_sys_io_mmap(unsigned long long phy_addr, unsigned int size);

/// Unmaps a result of hi_sys_io_mmap, with the same size; the result of munmap.
int sample_sys_munmap(void *vir_addr, unsigned int size);

/// Write and read one 32-bit register at a physical address: 0, -1 when it could not be mapped,
/// kNullPointer for a null output, or the unmapping error.
int hi_sys_set_reg(unsigned long long addr, unsigned int value);
int hi_sys_get_reg(unsigned long long addr, unsigned int *value);
