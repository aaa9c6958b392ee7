// The world of a fuzz target: time that passes only when somebody waits for it, a serial line and
// sockets that deliver what the input says, and no shell, no physical memory and no other machine.
// System calls of the code under test end here, by the linker's --wrap.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "fuzz/require.h"

class UDPSocket;

namespace world {

/// What the serial device says, one chunk per read; then it is silent.
extern std::deque<std::string> serialInput;
/// What arrives on whichever socket receives next; then nothing does.
extern std::deque<std::string> datagrams;
/// What the code wrote to the serial line, and sent, texts alone.
extern std::string serialOutput;
extern std::vector<std::string> sent;
/// Called whenever the code sleeps. May be empty.
extern std::function<void()> onSleep;

/// Sets the daemon's globals, the settings and all of the above back to a fresh start.
void reset();

/// The rest of the input as chunks: a byte that is a length, and so many bytes.
std::deque<std::string> chunks(FuzzedDataProvider &input);

/// A socket of the daemon's, at any port.
UDPSocket &socket();

using fuzz::require;

}  // namespace world
