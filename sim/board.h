// A whole simulated board: network, registers, serial ports, chip, computer, and the daemon.
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
#include "sim/host/output_consoles.h"
#include "sim/host/registers.h"
#include "sim/host/serial_ports.h"
#include "sim/host/video_source.h"

namespace sim {

struct BoardOptions {
    std::string identifier = "QBRD10401m2_3000_R1";
    enum Chip { kNone, kCh9329, kCh9350 } chip = kCh9329;
    unsigned mcuBoards = 0;  ///< 10 or 20: a microcontroller with so many boards, and no chip
    std::set<unsigned> absentBoards;
    bool chatter = false;     ///< a CH9350 sends its status every second
    int chipBaud = 115200;    ///< what the chip runs at when the board starts
    int storedBaud = 115200;  ///< what it takes at its next restart
    std::string address = "192.168.1.10";
    std::vector<std::string> consoles{"192.168.1.20"};
    bool paced = false;
    double loss = 0;         ///< part of the records and frames that is lost, 0 to 1
    unsigned seed = 1;       ///< of what is lost
    bool powerCycle = true;  ///< give it one when the daemon asks for it with "reboot"

    std::string daemon;                       ///< program
    std::string preload;                      ///< its preload library
    std::string directory = "/data/quillon";  ///< of its settings and log; made when missing
    std::optional<std::string> settings;      ///< quillon.ini; none: as it lies there, or fresh
    int input = -1;                           ///< the daemon's standard input; -1: /dev/null
    std::function<void(const std::string &)> onLogLine;
    /// From another thread: what could not be written.
    std::function<void(const std::string &)> onTrouble;
};

/// Which of /dev/ttyAMA0 to 3 the chip of a board is wired to; configured is the port of the
/// settings ("COM3"), which decides on boards that leave it open.
int chipPort(const std::string &identifier, const std::string &configured);

/// Lives on a private host (runOnPrivateHost), one at a time. The constructor makes the devices,
/// start() the daemon.
class Board {
  public:
    /// Throws std::runtime_error when the system refuses.
    explicit Board(BoardOptions options);
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    /// Starts the daemon; throws std::runtime_error when /dev/mem is not the board's own file, or
    /// the program does not start. Call once, and not with a microcontroller: who programs it has
    /// the serial line for himself.
    void start();

    /// Waits until the data server and the operator socket listen; false when they do not in time
    /// or the daemon ended.
    bool waitUntilListening(std::chrono::milliseconds timeout);
    bool listening() const { return listening_; }
    /// Waits until nothing is on its way to the computer any more.
    void waitUntilQuiet(std::chrono::milliseconds timeout);

    /// Ends the daemon: SIGTERM, which costs it 2 s, then SIGKILL. Its exit status.
    int stop();
    /// Chip and daemon lose power and come back.
    void powerCycle();

    /// The daemon that runs now, replaced by a power cycle; null before start().
    std::shared_ptr<Daemon> daemon() const;
    /// Exit status of a daemon that ended by itself; none while it runs.
    std::optional<int> daemonStatus() const;
    /// The chip that is soldered to it, whichever.
    HidChip &hidChip();
    Ch9329 &chip() { return chip_; }
    /// Speed that the daemon has set on the chip's line, bits per second.
    int lineBaud() const { return ports_->hostBaud(port_); }
    Microcontroller &microcontroller() { return microcontroller_; }
    VideoSource &video() { return video_; }
    OutputConsoles &consoles() { return consoles_; }
    SerialPorts &serialPorts() { return *ports_; }
    Computer &computer() { return computer_; }
    /// What the daemon did with the computer's USB power; none: nothing yet, and it is on.
    std::optional<bool> usbPower() const;
    Registers &registers() { return registers_; }
    const BoardOptions &options() const { return options_; }
    std::string settingsFile() const { return options_.directory + "/quillon.ini"; }
    /// The settings as they lie there.
    std::string settings() const;
    /// UDP port of the data server, 0 until it started.
    unsigned dataPort() const { return dataPort_; }

  private:
    void writeFiles() const;
    void attachDevice();
    void startDaemon();
    void watchLine(const std::string &line);
    void supervise();

    BoardOptions options_;
    Registers registers_;
    Computer computer_;
    Ch9329 chip_;
    Ch9350 rawChip_;
    Microcontroller microcontroller_;
    OutputConsoles consoles_;
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
