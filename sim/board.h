// A complete simulated board: network, registers, serial ports, chip, computer, and the daemon.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "sim/chips/ch9329.h"
#include "sim/chips/ch9350.h"
#include "sim/chips/microcontroller.h"
#include "sim/computer/computer.h"
#include "sim/host/daemon.h"
#include "sim/host/network.h"
#include "sim/host/output_consoles.h"
#include "sim/host/registers.h"
#include "sim/host/serial_ports.h"
#include "sim/host/video_source.h"

namespace sim {

struct BoardOptions {
    std::string identifier = "QBRD10401m2_3000_R1";
    enum Chip { kNone, kCh9329, kCh9350 } chip = kCh9329;
    unsigned mcuBoards = 0;  ///< 10 or 20: boards of a microcontroller, which replaces the chip
    std::set<unsigned> absentBoards;
    bool chatter = false;     ///< a CH9350 sends its status every second
    int chipBaud = 115200;    ///< speed of the chip when the board starts, bits per second
    int storedBaud = 115200;  ///< speed of the chip after its next restart
    /// Makes the computer; none: one that reads reports as one with a US keyboard does.
    std::function<std::unique_ptr<Computer>()> computer;
    std::string address = "192.168.1.10";
    std::vector<std::string> consoles{"192.168.1.20"};
    bool paced = false;
    double loss = 0;         ///< part of records, frames, answers and checksums, 0 to 1
    unsigned seed = 1;       ///< chooses what is lost
    bool powerCycle = true;  ///< cut the power when the daemon asks for it with "reboot"

    /// A folder in which the devices are made, for a daemon that somebody else starts; then this is
    /// no private host, and there is no network. Empty: the board has a daemon of its own.
    std::string devices;
    bool consolesApart = false;  ///< the consoles have a network namespace of their own

    std::string daemon;                       ///< path of the program
    std::string preload;                      ///< path of its preload library
    std::string directory = "/data/quillon";  ///< of its settings and log; made when missing
    std::optional<std::string> settings;      ///< quillon.ini; none: the file there, or fresh
    int input = -1;                           ///< the daemon's standard input; -1: /dev/null
    std::function<void(const std::string &)> onLogLine;
    /// Called from another thread, with what could not be written.
    std::function<void(const std::string &)> onTrouble;
};

/// Number of the port, /dev/ttyAMA0 to 3, that the chip of a board is wired to. configured is the
/// port in the settings ("COM3"), which decides on boards that do not force one.
int chipPort(const std::string &identifier, const std::string &configured);

/// Exists on a private host (runOnPrivateHost), one at a time. The constructor makes the devices,
/// start() the daemon.
class Board {
  public:
    /// Throws std::runtime_error when the system refuses.
    explicit Board(BoardOptions options);
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    /// Starts the daemon; throws std::runtime_error when /dev/mem is not the board's own file, or
    /// the program does not start. Call once, and not with a microcontroller: the program that
    /// uploads to it needs the serial line for itself.
    void start();

    /// Waits until the data server and the operator socket listen; false when they do not in time
    /// or the daemon ended.
    bool waitUntilListening(std::chrono::milliseconds timeout);
    bool listening() const { return listening_; }
    /// Waits until nothing has been on its way to the computer for 100 ms, at most timeout.
    void waitUntilQuiet(std::chrono::milliseconds timeout);

    /// Ends the daemon with SIGTERM, after 3 s with SIGKILL; it takes 2 s to end. Its exit status.
    int stop();
    /// Chip and daemon lose power and start again.
    void powerCycle();

    /// The present daemon; a power cycle replaces it. Null before start().
    std::shared_ptr<Daemon> daemon() const;
    /// Exit status of a daemon that ended; none while it runs.
    std::optional<int> daemonStatus() const;
    /// The chip on the board, CH9329 or CH9350.
    HidChip &hidChip();
    Ch9329 &chip() { return *chip_; }
    /// Speed that the daemon has set on the chip's line, bits per second.
    int lineBaud() const { return ports_->hostBaud(port_); }
    Microcontroller &microcontroller() { return microcontroller_; }
    VideoSource &video() { return video_; }
    OutputConsoles &consoles() { return *consoles_; }
    /// The consoles' own network; null when they stand on the board's.
    const ConsoleNetwork *consoleNetwork() const { return consoleNetwork_.get(); }
    SerialPorts &serialPorts() { return *ports_; }
    Computer &computer() { return *computer_; }
    /// How the daemon switched the computer's USB power; none: not yet, and it is on.
    std::optional<bool> usbPower() const;
    Registers &registers() { return registers_; }
    const BoardOptions &options() const { return options_; }
    std::string settingsFile() const { return options_.directory + "/quillon.ini"; }
    /// The present text of the settings file; empty without one.
    std::string settings() const;
    /// UDP port of the data server, 0 until it starts.
    unsigned dataPort() const { return dataPort_; }

  private:
    void writeFiles() const;
    void attachDevice();
    void startDaemon();
    void watchLine(const std::string &line);
    void supervise();

    BoardOptions options_;
    const std::unique_ptr<ConsoleNetwork> consoleNetwork_;
    Registers registers_;
    const std::unique_ptr<Computer> computer_;
    std::optional<Ch9329> chip_;  ///< a board has one of the two
    std::optional<Ch9350> rawChip_;
    Microcontroller microcontroller_;
    const std::unique_ptr<OutputConsoles> consoles_;
    VideoSource video_;
    std::unique_ptr<SerialPorts> ports_;
    int port_ = 0;  ///< of the chip

    mutable std::mutex mutex_;
    std::shared_ptr<Daemon> daemon_;
    std::thread supervisor_;
    std::atomic<bool> stopping_{false}, listening_{false}, wantsReboot_{false};
    std::atomic<unsigned> dataPort_{0};
};

}  // namespace sim
