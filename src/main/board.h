// Which board this is, how its pins are set, and what is soldered to it.
#pragma once

#include "state.h"

/// Room for a board identifier and its terminator.
constexpr int kBoardSize = 128;

/// Reads the board identifier from /version/hardware_info into dst, kBoardSize bytes that the
/// caller cleared; longer ones are cut. False, with an empty dst, when the file is missing or has
/// no such field.
bool readHdVersion(char *dst);

/// The 3020 has nothing for this daemon to do: it idles there.
bool isIdleBoard(const char *board);

/// True for the boards on which a CH9329 is tried; the others have a CH9350.
bool hasCh9329(const char *board);

/// True for the boards whose video input can be watched.
bool hasVideoWatch(const char *board);

/// Sets the pins of the board through registers, forces and saves its serial port, sets hd_info
/// and switches the USB power off where the board has that switch.
void setUpBoard(const char *board);

/// A pause between register accesses, for boards that would need one; none does.
inline void delaytime(unsigned) {}

/// Switches the computer's USB power line; does nothing on a QBX_31DV200. Always true.
bool set_usb_power(bool on, hd_info_ board);
