// Are the outputs of the controlling user alive?
#pragma once

class UDPSocket;

/// Pings every linked output once; one that answers restores the user's level, one that misses two
/// pings takes it to 0. Takes up to 6 s for each silent output.
void heartbeatPass(UDPSocket &socket);

/// The second ping of a slot on htBeatSocket: true when an answer came within 3 s; else the level
/// is saved in heartPre, unless it is 0 already, and set to 0.
bool timeOutCheck(unsigned slot);

/// Thread: a pass every 30 s, for ever. The argument is ignored.
void *checkConnect(void *);
