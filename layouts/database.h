// The layouts that the X keyboard database has.
#pragma once

#include <string>
#include <vector>

namespace quillon {

struct LayoutEntry {
    std::string layout, variant;  ///< as Typist takes them; no variant: the layout's first
    std::string name;             ///< in English, e.g. "German (no dead keys)"
};

/// All layouts and variants, the layouts in the order of the database and each before its variants.
/// Throws std::runtime_error when the database is not installed.
std::vector<LayoutEntry> layoutDatabase();

}  // namespace quillon
