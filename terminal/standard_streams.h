// Standard input, output and error of a program, from its first step to its last.
#pragma once

namespace quillon {

/// Sees that descriptors 0 to 2 exist, on /dev/null where they were closed, or ends the process.
/// First of all: else the next file or socket takes the number, and gets what the program prints.
void holdStandardStreams();

/// Last of all: false, with a line on standard error that begins with the program's name, when not
/// everything that was printed has been written. A full disk shows only here.
bool finishOutput(const char *program);

}  // namespace quillon
