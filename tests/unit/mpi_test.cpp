// Registers through the SoC vendor's library: the address has to arrive in the width that the
// library takes. The library is a stand-in with one register, built separately in that width.

#include <cstdio>

#include "myserial.h"

int main() {
    unsigned value = 0;
    const bool ok = SAMPLE_SYS_SetReg(0x120F0100, 0x89ABCDEF) == 0 &&
                    SAMPLE_SYS_GetReg(0x120F0100, &value) == 0 && value == 0x89ABCDEF &&
                    SAMPLE_SYS_SetReg(0x120F0104, 1) == -1;
    if (!ok) puts("the stand-in was asked for another register");
    return ok ? 0 : 1;
}
