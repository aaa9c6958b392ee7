// Where things of the simulator's own lie on the private host.
#pragma once

namespace sim {

constexpr char kPrivateDir[] = "/quillon-board";
constexpr char kPtyDir[] = "/quillon-board/pts";   ///< its pseudo-terminals
constexpr char kToolDir[] = "/quillon-board/bin";  ///< first in PATH; shadows `reboot`
/// "PART SEED": what of the records never reaches the daemon, see uart_preload.cpp.
constexpr char kLossVariable[] = "QUILLON_BOARD_LOSS";
/// The preload library: the loader parts the paths of its list at blanks and colons.
constexpr char kPreload[] = "/quillon-board/uart.so";
constexpr char kUartSocket[] = "/quillon-board/uart.sock";  ///< see uart_preload.cpp

}  // namespace sim
