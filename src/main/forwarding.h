// The serial path beside the CH9329's frames: raw records to a CH9350, and the test whether a
// computer is attached.
#pragma once

/// Pause after a frame that presses or releases a key of our own, microseconds.
constexpr unsigned kFramePause = 20000;

/// Strokes Num Lock and looks whether its LED changes; true when a computer answered so, and then
/// strokes it once more. Clears query_link at its end. Takes some 500 ms.
bool query_usb_link();

/// Forwards a console record raw. The position in an absolute mouse record (10 bytes) is scaled
/// in place to 0..1023. The last argument is not used.
void serialcontrol(char *frame, int length, int);

/// One read of up to 11 bytes.
void serialRead(char *buffer);

/// Gathers a message that comes in pieces between a head and a tail marker. 1: not complete yet,
/// 2: destination holds it up to its tail, 3: nothing begun and nothing in this piece. destination
/// has room for its text and the piece.
int mergeSerialMessage(char *destination, char *piece, const char *head, const char *tail);
