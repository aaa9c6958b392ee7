// The board's serial ports /dev/ttyAMA0 to 3: pseudo-terminals, with wires behind them.
//
// A pseudo-terminal has no speed. On paced wires a byte takes the time of 10 bits, and answers
// arrive as from a UART's FIFO: up to 16 bytes at once. On other wires bytes arrive immediately. On
// both they arrive only while both ends have the same speed.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/chips/serial_device.h"

namespace sim {

class SerialPort;

class SerialPorts {
  public:
    static constexpr int kCount = 4;

    /// Makes the devices, on the private host or in a folder of devices, and starts to serve them.
    /// Throws std::runtime_error when the system refuses.
    explicit SerialPorts(bool paced, const std::string &devices = "");
    ~SerialPorts();
    SerialPorts(const SerialPorts &) = delete;
    SerialPorts &operator=(const SerialPorts &) = delete;

    /// Wires a device to a port. The device must outlive this object.
    void attach(int port, SerialDevice &device);

    /// Calls back with all bytes that pass, from the ports' thread; null ends that.
    void onTraffic(std::function<void(const Traffic &)> callback);

    /// Loses what is on the wires, in both directions, as when the power fails.
    void powerCut();

    /// Speed that the host has set, bits per second; 0 for one that the daemon does not know.
    int hostBaud(int port) const;

  private:
    void serve();
    void serveUartEvents(int client);

    std::mutex wires_;  ///< for ports_, except what is safe from any thread
    std::array<std::unique_ptr<SerialPort>, kCount> ports_;
    std::mutex mutex_;  ///< for callback_
    std::function<void(const Traffic &)> callback_;
    int events_ = -1;  // listening socket of the preload library
    int wake_ = -1;
    std::vector<int> clients_;
    std::thread thread_;
};

}  // namespace sim
