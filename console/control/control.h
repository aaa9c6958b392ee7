// Control of an endpoint from a terminal: keys and mouse of the terminal become the computer's.
#pragma once

#include <csignal>
#include <string>

#include "layouts/typing.h"
#include <quillon/controlled_endpoint.h>

namespace quillon {

struct ControlOptions {
    ControlledEndpoint::Setup endpoint;
    LayoutChoice layout;  ///< of the computer
    std::string user;     ///< for requests for control, see conventionalName
    int level = 0;
    bool apply = false;              ///< ask for control at once
    Stroke escape{kLeftCtrl, 0x30};  ///< opens the menu
    std::string escapeName = "Ctrl-]";
};

/// Runs until the person quits, the terminal closes, or stop is not 0. Throws std::runtime_error
/// without a terminal or a network.
void control(const ControlOptions &options, const volatile std::sig_atomic_t &stop);

}  // namespace quillon
