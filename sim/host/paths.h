// Paths and names of the simulator's own on the private host.
#pragma once

namespace sim {

constexpr char kPrivateDir[] = "/quillon-board";
constexpr char kPtyDir[] = "/quillon-board/pts";   ///< its pseudo-terminals
constexpr char kToolDir[] = "/quillon-board/bin";  ///< first in PATH; shadows `reboot`
/// Environment variable "PART SEED": which records never reach the daemon, see uart_preload.cpp.
constexpr char kLossVariable[] = "QUILLON_BOARD_LOSS";
/// Link to the preload library, because paths in LD_PRELOAD cannot hold blanks or colons.
constexpr char kPreload[] = "/quillon-board/uart.so";
constexpr char kUartSocket[] = "/quillon-board/uart.sock";  ///< see uart_preload.cpp

}  // namespace sim
