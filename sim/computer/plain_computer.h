// A computer that reads reports as computers are believed to do, with no machine behind it.
#pragma once

#include <memory>
#include <string>

#include "sim/computer/computer.h"
#include "sim/computer/key_reader.h"

namespace sim {

class PlainComputer : public Computer {
  public:
    /// Reads keys with a layout; without one, with that of a US keyboard.
    explicit PlainComputer(std::unique_ptr<KeyReader> reader = nullptr);

    /// Sets the lock LEDs, as a person does at the computer's own keyboard.
    void setLeds(std::uint8_t leds);

    void attach(UsbFace face) override;
    void detach() override;
    void keyboardReport(const std::uint8_t (&report)[8]) override;
    void absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel) override;
    void relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                        std::int8_t wheel) override;

  private:
    void keyDown(std::uint8_t usage) override;
    void keyUp(std::uint8_t usage) override;
    std::string textOf(std::uint8_t usage);
    void followLocks();

    UsbFace face_ = UsbFace::kCh9329;
    std::unique_ptr<KeyReader> reader_;
};

}  // namespace sim
