// What the endpoint knows of itself and its hardware: own address, addresses out of operators'
// text, and physical registers through /dev/mem.
#pragma once

#include <string>

/// Takes a "[seq]" request apart: line 1 holds the endpoint's address behind its first '=', line 2
/// behind its first '=' the answer address, ':' and the answer port. seqIp and answerIp have room
/// for 16 characters. False for fewer than four lines, a line without '=' or ':', an address over
/// 15 characters, or a line 2 of 18 characters or fewer (seqIp is written by then).
bool get_seq_ip(char *msg, char *seqIp, char *answerIp, int *answerPort);

/// This endpoint's address, the value of kEth0Ip in /data/net.ini; the text "kEth0Ip" when the
/// file has none.
std::string GetLocalIp();

/// Result of a register read whose output pointer is null: the SoC system module's null-pointer
/// code.
constexpr int kNullPointer = static_cast<int>(0xA0028006);

/// Maps size bytes at a physical address and returns where phy_addr itself lies; null on failure,
/// which is printed.
void *hi_sys_io_mmap(unsigned long long phy_addr, unsigned int size);

/// Undoes hi_sys_io_mmap, given its result and the same size; the result of munmap.
int sample_sys_munmap(void *vir_addr, unsigned int size);

/// One 32-bit register by physical address: 0, -1 when it could not be mapped, kNullPointer, or
/// the unmapping error.
int hi_sys_set_reg(unsigned long long addr, unsigned int value);
int hi_sys_get_reg(unsigned long long addr, unsigned int *value);
