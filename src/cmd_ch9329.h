// The CH9329's command frames: console records in, frames out, and what the chip answers.
//
// A frame is 57 AB, address 00, command, data length, data, and the low byte of the sum of all
// bytes before it. An answer carries the command with bit 0x80 set.
#pragma once

/// Bytes of a frame before and after its data.
constexpr int kFrameHead = 2 + 1 + 1 + 1;  // 57 AB, address, command, data length
constexpr int kFrameSum = 1;

/// Size of the buffer that every caller passes to cntRead, bytes.
constexpr int kReplyRoom = 256;
/// cntRead stops after this many reads, for a chip that never falls silent. The longest answer has
/// fewer than 100 bytes, so it is read whole even one byte at a time.
constexpr int kMaxReads = 128;

/// The last answer (echo) and the last request (cmd) of cmd_get_info.
extern char echo[64], cmd[64];

/// Sends an absolute mouse (10 bytes) or keyboard (11 bytes) record as a frame and waits for the
/// acknowledgement, 60 ms at most. 1, or 0 for any other length. A keyboard frame carries the
/// modifiers and the first key; a mouse frame carries a button only when it is left, right or
/// middle alone.
int SendData(char *message, int length);

/// The same for a relative mouse (7 bytes) or keyboard (11 bytes) record. Two zero bytes are
/// written after the mouse frame.
int sendRelData(char *message, int length);

/// Scales the pixel position of an absolute mouse record to 0..4095, into bytes 7 to 10 of a frame.
void getNewLocation(char *message, char *frame);

/// Reads up to size bytes (256 at most) at a time, until the line is quiet for timeout microseconds
/// (0: 60000) or for kMaxReads reads. destination has kReplyRoom bytes; further bytes are dropped
/// and not counted. True when at least one byte arrived. While reads fail it does not return, and
/// tries again after each timeout.
bool cntRead(char *destination, int *count, int size, int timeout);

/// Asks for the computer's lock LEDs; takes at least 190 ms. False, with all three off, when no
/// valid reply came; true, with the flags unchanged, for an LED byte above 7.
bool queryKeyLock(bool *caps, bool *num, bool *scroll);

/// Asks the chip for its information, prints the answer and applies the configured serial
/// settings. Always true.
bool cmd_get_info();

/// Prints "chip echo: " and the bytes, kReplyRoom of them at most.
void debugPrint(char *bytes, int count);

/// Sets speed, data bits, parity, stop bits and read time-out of the serial port from the settings.
void applySerialSettings();

/// Low byte of the sum of count bytes.
unsigned char frameSum(const char *bytes, int count);
