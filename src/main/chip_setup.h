// Opening the serial port, and finding out at which speed the CH9329 listens.
#pragma once

#include "cmd_ch9329.h"

/// A whole parameter frame of the CH9329.
constexpr int kParameterFrame = kFrameHead + 50 + kFrameSum;

/// Opens the configured port with the configured settings; always true.
bool openPort();

/// Opens the port and negotiates until the chip is found at 115200 bits per second; does not return
/// while no chip answers. Returns 1, with the line open, or with the line closed after printing
/// "reboot": then the chip has stored 115200 and uses it only after a restart.
int setCh9329();

/// Reads the chip's parameter block into destination (at least 64 bytes, of which 64 are cleared
/// first). 1 when exactly kParameterFrame bytes came, else 0. Takes at least a second.
int ch9329Rata(char *destination);

/// The line speed in a parameter frame, bits per second. length is not used.
int getRate(char *frame, int length);

/// Turns a parameter reply into the request to store 115200, and writes length bytes. Always 1.
int setBaudRate(char *frame, int length);

/// Restarts the chip, waits 2 s and prints its answer. Always 1.
int resetCH9329();

/// Switches a CH9350 to relative mouse mode. Always 1.
int setCH9350Rel();

/// Fills 56 bytes with a parameter reply that holds what this system wants the chip to store.
void ch9329Ini(char *frame);
