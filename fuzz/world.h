// The world of a fuzz target: time that passes only while the code waits, a serial line and sockets
// that deliver what the input says, and no shell, no physical memory and no other machine. The
// linker's --wrap directs the system calls of the code under test here.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "fuzz/require.h"

class UDPSocket;

namespace world {

/// What the serial device sends, one chunk per read; then it is silent.
extern std::deque<std::string> serialInput;
/// Datagrams for whichever socket receives next; after them nothing arrives.
extern std::deque<std::string> datagrams;
/// What the code wrote to the serial line, and the datagrams and queue messages that it sent.
extern std::string serialOutput;
extern std::vector<std::string> sent;
/// Called whenever the code sleeps. May be empty.
extern std::function<void()> onSleep;

/// Sets the daemon's globals, the settings and all of the above back to a fresh start.
void reset();

/// Cuts the rest of the input into chunks of 1 to 255 bytes; the input says their lengths.
std::deque<std::string> chunks(FuzzedDataProvider &input);

/// One socket that stands for every socket of the daemon.
UDPSocket &socket();

using fuzz::require;

}  // namespace world
