// Raw records to a CH9350, and the test whether a computer is attached, for both chips.
#pragma once

/// Pause after a frame with which the daemon itself presses or releases a key, microseconds.
constexpr unsigned kFramePause = 20000;

/// Presses and releases Num Lock and checks whether its LED changes. If it does, a computer is
/// attached: does it once more, to restore Num Lock, and returns true. Clears query_link at the
/// end. Takes about 500 ms.
bool query_usb_link();

/// Forwards a console record raw. The position in an absolute mouse record (10 bytes) is scaled
/// in place to 0..1023. The last argument is not used.
void serialcontrol(char *frame, int length, int);

/// One read of up to 11 bytes.
void serialRead(char *buffer);

/// Collects a message that comes in pieces between a head and a tail marker. 1: not complete yet,
/// 2: destination holds it up to its tail, 3: no message has begun. destination must have room for
/// its text and the piece.
int mergeSerialMessage(char *destination, char *piece, const char *head, const char *tail);
