// The board's serial ports /dev/ttyAMA0 to 3: pseudo-terminals, with wires behind them.
//
// A pseudo-terminal has no speed. Paced wires take their time, 10 bits for each byte, and answers
// come as a UART's FIFO hands them over: 16 bytes at a time, a short answer whole. On others bytes
// arrive at once. Either way they only arrive while both ends agree on the speed.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/chips/serial_device.h"

namespace sim {

class SerialPort;

class SerialPorts {
  public:
    static constexpr int kCount = 4;

    /// Makes the devices on the private host and starts to serve them. Throws std::runtime_error
    /// when the system refuses.
    explicit SerialPorts(bool paced);
    ~SerialPorts();
    SerialPorts(const SerialPorts &) = delete;
    SerialPorts &operator=(const SerialPorts &) = delete;

    /// Wires a device to a port; the caller keeps it, and keeps it longer than this object.
    void attach(int port, SerialDevice &device);

    /// Calls back with everything that passes, from the ports' thread; null: no more.
    void onTraffic(std::function<void(const Traffic &)> callback);

    /// Loses what is on the wires, either way, as when the power fails.
    void powerCut();

    /// Speed that the host has set, bits per second.
    int hostBaud(int port) const;

  private:
    void serve();
    void serveUartEvents(int client);

    std::mutex wires_;  ///< for ports_, but what is safe there without
    std::array<std::unique_ptr<SerialPort>, kCount> ports_;
    std::mutex mutex_;  ///< for callback_
    std::function<void(const Traffic &)> callback_;
    int events_ = -1;  // listening socket of the preload library
    int wake_ = -1;
    std::vector<int> clients_;
    std::thread thread_;
};

}  // namespace sim
