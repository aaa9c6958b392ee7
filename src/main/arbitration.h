// The rules for which user controls this endpoint, and the messages about it. A larger level is
// stronger. All of this runs on the main thread.
//
// A user's name begins with the address of their console and "-"; messages for the user go to port
// 2333 there. A name without "-", or with more than 15 characters before it, has no address, and no
// message is sent. Names have up to 31 characters and addresses up to 15. The handle functions
// refuse longer ones, the others cut them.
#pragma once

class UDPSocket;

/// Gives the endpoint to a user without asking: tells the holder, then the new user. The new user's
/// output takes the place of the holder's last one; the holder's other outputs stay linked. Stores
/// the new name, level and output. Always true.
bool connectNew(const char *name, const char *ip, int level);

/// Gives the endpoint to a user and tells all consoles. With dropCurrent the holder and all their
/// outputs are removed, and the consoles are told that first; without it a ninth output is refused
/// with a log line. Stores the new name, level and output. Always true.
bool disconnectUserConnectNew(const char *name, const char *ip, int level, bool dropCurrent);

/// The result of an application for control; "reply" carries the codes from 0 on.
enum ApplyResult {
    kApplyBadAnswer = -1,  ///< no "reply", or the receive failed, or the process ends
    kApplyRefused = 0,
    kApplyGranted = 1,
    kApplyNoAnswer = 2
};

/// Asks all outputs of the holder whether the user may take over, and waits up to 10 s for the
/// first answer. One of ApplyResult.
int applyUser(const char *name);

/// Tells a user whose level is too low who holds the endpoint. Always true.
bool perLowerCurnt(const char *name);

/// Replaces every "|" by a blank, in place. Always true.
bool changeChar(char *str);

/// Waits until a peer announces its level in words: "root" 0, "admn" 1, "user" 2. Other datagrams
/// are ignored.
void judgeNewUser(UDPSocket *sock, int *level);

/// The rules for "connect|NAME|ADDRESS|LEVEL", "apply|NAME|ADDRESS|LEVEL" and
/// "disconnect|NAME|LEVEL" (whose level is ignored). Each takes the whole command and replaces its
/// bars by blanks; operators sends the answer to "apply". A missing field is empty, a missing level
/// is 0. "connect" and "apply" refuse a name or address that is too long or not storable, with a
/// line on standard output; "disconnect" stores neither.
void handleConnect(UDPSocket &operators, char *command);
void handleApply(UDPSocket &operators, char *command);
void handleDisconnect(UDPSocket &operators, char *command);
