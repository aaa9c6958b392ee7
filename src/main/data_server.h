// Keyboard and mouse records from the consoles, and their questions about lock keys and picture.
#pragma once

class UDPSocket;

/// Maximum size of a received datagram, bytes; the rest is cut off.
constexpr int kConsoleDatagram = 256;
/// Length of "software=", the text with which management software prefixes a record.
constexpr int kSoftwareTag = 9;
/// Size of the buffer of a datagram, bytes. Removing the tag moves as many bytes as were received,
/// so it reads kSoftwareTag bytes after them, which are zero.
constexpr int kConsoleBuffer = kConsoleDatagram + kSoftwareTag + 1;

/// What the server remembers from one datagram to the next.
struct ConsoleServer {
    int delay = 0;  ///< passed to serialcontrol, milliseconds
    /// True when the sender may control the computer. Deliberate, as the protocol has it: with
    /// permissions on and nobody linked, the result for the datagram before stays.
    bool authorized = false;
};

/// Handles one datagram of 1 to kConsoleDatagram bytes from the address sender, in a buffer of
/// kConsoleBuffer bytes that is zero after them. Answers go through socket to its last sender.
void handleConsoleDatagram(ConsoleServer &server, UDPSocket &socket, const char *sender, char *buf,
                           int length);

/// Thread: serves the UDP port in the unsigned that arg points to, until is_finish. Returns 1.
void *udpServerProc(void *arg);
