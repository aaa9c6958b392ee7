// A computer's layout from the X keyboard database.
#pragma once

#include <memory>

#include "layouts/typing.h"
#include "sim/computer/key_reader.h"

namespace sim {

/// Throws std::runtime_error when there is no such layout.
std::unique_ptr<KeyReader> readerOf(const quillon::LayoutChoice &choice);

}  // namespace sim
