// Standard input, output and error of a program, from its first step to its last.
#pragma once

namespace quillon {

/// Opens /dev/null for those of the descriptors 0 to 2 that are closed, or ends the process. Call
/// it first: otherwise the next file or socket takes the number and gets what the program prints.
void holdStandardStreams();

/// Call it last. False, with a line on standard error that begins with the program's name, when not
/// everything that was printed has been written; a full disk shows only here.
bool finishOutput(const char *program);

}  // namespace quillon
