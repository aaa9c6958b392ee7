// The CH9329's command frames: console records in, frames out, and what the chip answers.
//
// A frame is 57 AB, address 00, command, data length, data, and the low byte of the sum of all
// bytes before it. An answer carries the command with bit 0x80 set.
#pragma once

/// Sizes of a frame: what stands before and behind its data.
constexpr int kFrameHead = 2 + 1 + 1 + 1;  // 57 AB, address, command, data length
constexpr int kFrameSum = 1;

/// Room that every destination of cntRead has, in bytes.
constexpr int kReplyRoom = 256;
/// A chip that has not fallen silent after this many reads is cut off. Its longest answers have
/// some 90 bytes, so a whole one passes even byte by byte.
constexpr int kMaxReads = 128;

/// Last answer to and request of cmd_get_info.
extern char echo[64], cmd[64];

/// Frames an absolute mouse (10 bytes) or keyboard (11 bytes) record and drains the chip's
/// acknowledgement. 1, or 0 for any other length. Of a keyboard record the modifiers and the
/// first key are sent, of a mouse record a single left, right or middle button.
int SendData(char *message, int length);

/// The same for a relative mouse (7 bytes) or keyboard (11 bytes) record. The mouse frame is
/// written with two zero bytes behind it.
int sendRelData(char *message, int length);

/// Scales the pixel position of an absolute mouse record to 0..4095, into bytes 7 to 10 of a frame.
void getNewLocation(char *message, char *frame);

/// Reads, size bytes at most (256) at a time, until the line is quiet for timeout microseconds (0:
/// 60000), or for kMaxReads reads. destination has kReplyRoom bytes; what is beyond them is
/// dropped and not counted. True when at least one byte arrived. Does not return while reads
/// fail, and tries one each timeout.
bool cntRead(char *destination, int *count, int size, int timeout);

/// Asks for the computer's lock LEDs, which takes at least 190 ms. False, with all three off, when
/// the chip did not answer; true with the flags unchanged for an LED byte above 7.
bool queryKeyLock(bool *caps, bool *num, bool *scroll);

/// Asks the chip for its information, prints the answer and applies the configured serial
/// settings. Always true.
bool cmd_get_info();

/// Prints "chip echo: " and the bytes, kReplyRoom of them at most.
void debugPrint(char *bytes, int count);

/// Gives the serial port the configured speed, frame shape and read time-out.
void applySerialSettings();

/// Low byte of the sum of count bytes.
unsigned char frameSum(const char *bytes, int count);
