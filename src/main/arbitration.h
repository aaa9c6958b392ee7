// Who controls this endpoint when several want to, and who is told. A larger level is a stronger
// right; all of this runs on the main thread.
//
// A user's name begins with the address of their console and "-"; messages for the user go there,
// port 2333. A name without "-", or with more than 15 characters before it, has no address, and
// nobody is told. Names have up to 31 characters and addresses up to 15. The rules refuse longer
// ones, the functions cut them.
#pragma once

class UDPSocket;

/// Gives the endpoint to a user without asking: tells the holder, then the new user. The new user's
/// output takes the place of the holder's last one; the holder's other outputs stay linked. Stores
/// the table. Always true.
bool connectNew(const char *name, const char *ip, int level);

/// Gives the endpoint to a user and tells all consoles, with dropCurrent after telling them that
/// the holder lost it with all outputs. Stores; without dropCurrent a ninth output is refused with
/// a message. Always true.
bool disconnectUserConnectNew(const char *name, const char *ip, int level, bool dropCurrent);

/// What an application for control came to; "reply" carries the codes from 0 on.
enum ApplyResult {
    kApplyBadAnswer = -1,  ///< no "reply", or the receive failed, or the process ends
    kApplyRefused = 0,
    kApplyGranted = 1,
    kApplyNoAnswer = 2
};

/// Asks all outputs of the holder whether the user may take over, and waits up to 10 s for the
/// first answer. One of ApplyResult.
int applyUser(const char *name);

/// Tells a user who is too weak who holds the endpoint. Always true.
bool perLowerCurnt(const char *name);

/// Turns every "|" into a blank, in place. Always true.
bool changeChar(char *str);

/// Waits for a peer that announces its level in words: "root" 0, "admn" 1, "user" 2. Whatever else
/// comes is passed over.
void judgeNewUser(UDPSocket *sock, int *level);

/// The rules for "connect|NAME|ADDRESS|LEVEL", "apply|NAME|ADDRESS|LEVEL" and
/// "disconnect|NAME|LEVEL" (whose level is not looked at). Each takes the whole command, and
/// changes its bars to blanks; the operator socket sends the answer to "apply". A field that is
/// missing is empty, a missing level 0. A field to be stored that is too long or cannot be refuses
/// "connect" or "apply" with a line on standard output; "disconnect" stores none.
void handleConnect(UDPSocket &operators, char *command);
void handleApply(UDPSocket &operators, char *command);
void handleDisconnect(UDPSocket &operators, char *command);
