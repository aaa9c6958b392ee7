// Text commands of operators and management software.
#pragma once

class UDPSocket;

/// Most bytes of a command that are received.
constexpr int kOperatorDatagram = 256;

/// Carries out one command, a terminated text. Answers go through socket to its last sender.
void handleOperatorCommand(UDPSocket &socket, char *command);

/// Serves the operator socket for ever.
[[noreturn]] void runOperatorLoop(UDPSocket &socket);
