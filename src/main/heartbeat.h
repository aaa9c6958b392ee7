// Checks whether the holder's outputs are alive.
#pragma once

class UDPSocket;

/// Pings every linked output. One that answers restores the holder's level if that is 0; one that
/// misses two pings sets it to 0. Takes up to 6 s for each silent output.
void heartbeatPass(UDPSocket &socket);

/// The second ping of a slot, on htBeatSocket. True when an answer came within 3 s; otherwise the
/// level, unless it is 0, is saved in heartPre and set to 0.
bool timeOutCheck(unsigned slot);

/// Thread: a pass, then a pause of 30 s, for ever. The argument is ignored.
void *checkConnect(void *);
