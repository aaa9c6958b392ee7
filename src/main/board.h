// Which board this is, which chip it has, and how its pins are set.
#pragma once

#include "state.h"

/// Room for a board identifier and its terminator.
constexpr int kBoardSize = 128;

/// Reads the board identifier from /version/hardware_info into dst, kBoardSize bytes that the
/// caller cleared; longer ones are cut. False, with an empty dst, when the file is missing or has
/// no such field.
bool readHdVersion(char *dst);

/// True for the 3020, on which this daemon has nothing to do and idles.
bool isIdleBoard(const char *board);

/// True for boards with a CH9329; the others have a CH9350, or no chip.
bool hasCh9329(const char *board);

/// True for the boards whose video input can be watched.
bool hasVideoWatch(const char *board);

/// The serial port ("COM1") that a board with a CH9329 uses whatever its settings say; null when
/// the settings decide.
const char *forcedPort(const char *board);

/// Sets the pins of the board through registers, forces and saves the serial port of a board that
/// needs a certain one, sets hd_info, and switches the USB power off on most boards.
void setUpBoard(const char *board);

/// A pause between register accesses, for boards that need one; no board does.
inline void delaytime(unsigned) {}

/// Switches the computer's USB power line; does nothing on a QBX_31DV200. Always true.
bool set_usb_power(bool on, hd_info_ board);
