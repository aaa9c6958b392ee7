// Keyboard and mouse records from the consoles, and their questions about lock keys and picture.
#pragma once

class UDPSocket;

/// Most bytes of a datagram that are received.
constexpr int kConsoleDatagram = 256;
/// Bytes of text before a record that software wraps, "software=".
constexpr int kSoftwareTag = 9;
/// Size of the buffer of a datagram, zero behind it: as many bytes as came move down over the tag.
constexpr int kConsoleBuffer = kConsoleDatagram + kSoftwareTag + 1;

/// What the server remembers from one datagram to the next.
struct ConsoleServer {
    int delay = 0;  ///< handed on to serialcontrol, milliseconds
    /// May the sender control the computer? With permissions on and nobody linked, the answer
    /// for the datagram before stands.
    bool authorized = false;
};

/// Handles one datagram of 1 to kConsoleDatagram bytes, in a buffer of kConsoleBuffer bytes that
/// is zero behind them, from the address sender. Answers go through socket to its last sender.
void handleConsoleDatagram(ConsoleServer &server, UDPSocket &socket, const char *sender, char *buf,
                           int length);

/// Thread: serves the UDP port that the unsigned at arg names, until is_finish. Returns 1.
void *udpServerProc(void *arg);
