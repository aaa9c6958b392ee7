// What the keys of a keyboard type on a computer.
#pragma once

#include <cstdint>
#include <string>

namespace sim {

class KeyReader {
  public:
    virtual ~KeyReader() = default;
    /// A key or modifier key (HID usage) went down; the UTF-8 text that it types, empty for none.
    virtual std::string press(std::uint8_t usage) = 0;
    virtual void release(std::uint8_t usage) = 0;
    virtual bool capsLock() const = 0;
    virtual bool numLock() const = 0;
};

}  // namespace sim
