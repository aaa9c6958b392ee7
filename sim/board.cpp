#include "sim/board.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "protocol/ports.h"
#include "sim/computer/plain_computer.h"
#include "sim/host/device_folder.h"
#include "sim/host/network.h"
#include "sim/host/paths.h"

namespace sim {
namespace {

constexpr auto kTick = std::chrono::milliseconds(2);

struct Wiring {
    const char *board;
    int port;
};

// Boards whose chip is wired to one port, whatever the settings say.
constexpr Wiring kWirings[] = {
    {"QBRD10401m2_3000_R1", 2}, {"QBRE10401m2_3000_R1", 2}, {"QBRD10401m2_3010_R1", 2},
    {"QBRD10402m_3100_R1", 2},  {"QBRE10402n_100_R1", 1},   {"QBRD10402m_500_R1", 1},
    {"QBRD10403n_5000_R1", 1},
};

// Registers of the USB power pins: pin function and GPIO direction. A board has one of these pins.
struct PowerPin {
    std::uint32_t function, direction, bit;
};
constexpr PowerPin kPowerPins[] = {{0x120F0170, 0x12220400, 0x08}, {0x120F02D8, 0x12230400, 0x02}};

void writeFile(const std::string &path, const std::string &text) {
    FILE *file = fopen(path.c_str(), "we");
    bool ok = file != nullptr && fwrite(text.data(), 1, text.size(), file) == text.size();
    if (file != nullptr) ok = fclose(file) == 0 && ok;
    if (!ok) throw std::runtime_error("cannot write " + path + ": " + strerror(errno));
}

std::string readFile(const std::string &path) {
    std::string text;
    FILE *file = fopen(path.c_str(), "re");
    if (file == nullptr) return text;
    constexpr std::size_t kMost = 1 << 20;  // the file may be a device, which has no end
    char chunk[4096];
    for (std::size_t n; text.size() < kMost && (n = fread(chunk, 1, sizeof chunk, file)) > 0;)
        text.append(chunk, n);
    fclose(file);
    return text;
}

std::string configuredPort(const std::string &settings) {
    constexpr char kKey[] = "com_port=";
    const std::size_t at = settings.find(kKey);
    return at == std::string::npos ? "" : settings.substr(at + strlen(kKey), strlen("COM3"));
}

// Makes the addresses, before anything listens at them.
BoardOptions withNetwork(BoardOptions options) {
    std::vector<std::string> addresses{options.address};
    if (!options.devices.empty()) {
        makeDeviceFolder(options.devices);
        options.consoles.clear();
        return options;
    }
    if (!options.consolesApart)
        addresses.insert(addresses.end(), options.consoles.begin(), options.consoles.end());
    makeEth0(addresses);
    return options;
}

std::unique_ptr<ConsoleNetwork> consoleNetworkOf(const BoardOptions &options) {
    if (!options.consolesApart || !options.devices.empty()) return nullptr;
    return std::make_unique<ConsoleNetwork>(options.consoles);
}

std::unique_ptr<OutputConsoles> makeConsoles(const BoardOptions &options,
                                             const ConsoleNetwork *network) {
    std::unique_ptr<OutputConsoles> consoles;
    const auto make = [&] { consoles = std::make_unique<OutputConsoles>(options.consoles); };
    network != nullptr ? network->run(make) : make();
    return consoles;
}

}  // namespace

int chipPort(const std::string &identifier, const std::string &configured) {
    for (const Wiring &wiring : kWirings)
        if (identifier.rfind(wiring.board, 0) == 0) return wiring.port;
    int port = 3;
    sscanf(configured.c_str(), "COM%d", &port);
    return std::clamp(port, 0, SerialPorts::kCount - 1);
}

Board::Board(BoardOptions options)
    : options_(withNetwork(std::move(options))),
      consoleNetwork_(consoleNetworkOf(options_)),
      registers_(options_.devices),
      computer_(options_.computer ? options_.computer() : std::make_unique<PlainComputer>()),
      microcontroller_(options_.mcuBoards, options_.chipBaud),
      consoles_(makeConsoles(options_, consoleNetwork_.get())) {
    if (options_.chip == BoardOptions::kCh9350)
        rawChip_.emplace(*computer_);
    else
        chip_.emplace(*computer_, options_.chipBaud, options_.storedBaud);
    if (options_.devices.empty()) writeFiles();
    ports_ = std::make_unique<SerialPorts>(options_.paced, options_.devices);
    attachDevice();
}

void Board::attachDevice() {
    // A CH9350 sits on the one port that every board without a CH9329 uses.
    constexpr int kRawPort = 3;
    port_ = options_.chip == BoardOptions::kCh9350
                ? kRawPort
                : chipPort(options_.identifier, configuredPort(readFile(settingsFile())));
    if (options_.mcuBoards != 0) {
        computer_->detach();
        microcontroller_.setAbsent(options_.absentBoards);
        ports_->attach(port_, microcontroller_);
        return;
    }
    if (options_.chip == BoardOptions::kNone) {
        computer_->detach();
        return;
    }
    const Losses losses(options_.loss, options_.seed);
    if (chip_) chip_->lose(losses);
    if (rawChip_) {
        rawChip_->lose(losses);
        rawChip_->chatter(options_.chatter);
    }
    ports_->attach(port_, hidChip());
}

HidChip &Board::hidChip() {
    if (rawChip_) return *rawChip_;
    return *chip_;
}

Board::~Board() {
    stopping_ = true;
    if (supervisor_.joinable()) supervisor_.join();
    daemon_.reset();
    ports_.reset();
}

void Board::writeFiles() const {
    writeFile("/version/hardware_info", "{\n\t\"board\": \"" + options_.identifier + "\"\n}\n");
    writeFile("/data/net.ini", "kEth0Ip=" + options_.address + "\n");
    if (mkdir(options_.directory.c_str(), 0755) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot make " + options_.directory + ": " + strerror(errno));
    // A fresh board comes from the factory with line and chip at the same speed. The daemon sets
    // the port at its first start.
    const std::string fresh = "[serial]\ncom_port=COM" +
                              std::to_string(chipPort(options_.identifier, "")) +
                              "\nbuad_rate=" + std::to_string(options_.chipBaud) + "\n";
    if (options_.settings || access(settingsFile().c_str(), F_OK) != 0)
        writeFile(settingsFile(), options_.settings.value_or(fresh));
}

void Board::start() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        startDaemon();
    }
    supervisor_ = std::thread([this] { supervise(); });
}

void Board::startDaemon() {
    if (!registers_.shadowDevMem())
        throw std::runtime_error("/dev/mem is not the simulated board's: the daemon stays off");
    listening_ = false;
    wantsReboot_ = false;
    dataPort_ = 0;
    Daemon::Setup setup;
    setup.program = options_.daemon;
    unlink(kPreload);
    if (symlink(options_.preload.c_str(), kPreload) != 0)
        throw std::runtime_error(std::string("cannot link ") + kPreload + ": " + strerror(errno));
    setup.preload = kPreload;
    setup.directory = options_.directory;
    setup.input = options_.input;
    if (options_.loss > 0)
        setup.environment.push_back(std::string(kLossVariable) + "=" +
                                    std::to_string(options_.loss) + " " +
                                    std::to_string(options_.seed));
    setup.logFile = options_.directory + "/quillon.log";
    setup.onTrouble = options_.onTrouble;
    setup.onLine = [this](const std::string &line) { watchLine(line); };
    daemon_ = std::make_shared<Daemon>(std::move(setup));
}

void Board::watchLine(const std::string &line) {
    int port = 0;
    if (sscanf(line.c_str(), "[udpServerProc]-530: starting udp server at port: %d", &port) == 1)
        dataPort_ = port & 0xFFFF;
    if (line == "reboot") wantsReboot_ = true;
    if (options_.onLogLine) options_.onLogLine(line);
}

void Board::supervise() {
    while (!stopping_) {
        if (!listening_ && dataPort_ != 0 && udpPortBound(dataPort_) &&
            udpPortBound(quillon::kOperatorPort)) {
            // As a person does who sees "reboot": the power is cut when the daemon listens.
            if (wantsReboot_ && options_.powerCycle)
                powerCycle();
            else
                listening_ = true;
        }
        std::this_thread::sleep_for(listening_ ? 50 * kTick : kTick);
    }
}

bool Board::waitUntilListening(std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (!listening_ && Clock::now() < deadline && !daemonStatus())
        std::this_thread::sleep_for(kTick);
    return listening_;
}

void Board::waitUntilQuiet(std::chrono::milliseconds timeout) {
    constexpr int kQuietTicks = 50;
    const auto deadline = Clock::now() + timeout;
    unsigned reports = computer_->state().reports;
    for (int quiet = 0; quiet < kQuietTicks && Clock::now() < deadline; ++quiet) {
        std::this_thread::sleep_for(kTick);
        const Computer::State now = computer_->state();
        if (now.reports != reports || now.waiting != 0 || udpBytesWaiting(dataPort_) != 0)
            quiet = 0;
        reports = now.reports;
    }
}

std::shared_ptr<Daemon> Board::daemon() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return daemon_;
}

std::optional<int> Board::daemonStatus() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return daemon_ ? daemon_->ended() : std::nullopt;
}

std::optional<bool> Board::usbPower() const {
    for (const PowerPin &pin : kPowerPins) {
        if (registers_.get(pin.function) != 0) return true;
        if ((registers_.get(pin.direction) & pin.bit) != 0) return false;  // an output, low
    }
    return std::nullopt;
}

std::string Board::settings() const {
    return readFile(settingsFile());
}

int Board::stop() {
    stopping_ = true;
    if (supervisor_.joinable()) supervisor_.join();
    const std::lock_guard<std::mutex> lock(mutex_);
    return !daemon_ ? 0 : daemon_->stop(SIGTERM, std::chrono::milliseconds(3000));
}

void Board::powerCycle() {
    const std::lock_guard<std::mutex> lock(mutex_);
    daemon_->kill();
    ports_->powerCut();  // else its last frame reaches the chip after the restart
    hidChip().powerCycle();
    startDaemon();
}

}  // namespace sim
