// Keyboard reports to text, as a computer with a layout of the X keyboard database reads them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "layouts/typing.h"

namespace quillon {

/// For one thread at a time.
class ReportReader {
  public:
    /// Throws std::runtime_error when there is no such layout.
    explicit ReportReader(const LayoutChoice &choice);
    ~ReportReader();
    ReportReader(ReportReader &&) noexcept;

    /// A key or modifier key went down; the UTF-8 text that it types, which may complete a dead
    /// key. Line feed is Enter. Nothing while Ctrl, Alt or the GUI key is held.
    std::string press(std::uint8_t usage);
    void release(std::uint8_t usage);

    bool capsLock() const;
    bool numLock() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quillon
