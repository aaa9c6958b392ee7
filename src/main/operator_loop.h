// Text commands of operators and management software.
#pragma once

class UDPSocket;

/// Maximum size of a received command, bytes; the rest is cut off.
constexpr int kOperatorDatagram = 256;

/// Carries out one command, a terminated text. Answers go through socket to its last sender.
void handleOperatorCommand(UDPSocket &socket, char *command);

/// Serves the operator socket for ever.
[[noreturn]] void runOperatorLoop(UDPSocket &socket);
