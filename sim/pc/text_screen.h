// The text screen of a PC's VGA, read through QEMU's monitor.
#pragma once

#include "sim/computer/computer.h"
#include "sim/pc/qmp.h"

namespace sim {

/// Stops the computer for some milliseconds. The lines are empty in a graphics mode; the size of
/// the picture is not filled in.
Machine::Screen readTextScreen(Qmp &qmp);

}  // namespace sim
