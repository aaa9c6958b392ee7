#include "sim/pc/virtual_pc.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "sim/pc/text_screen.h"
#include "sim/usb/usb_cable.h"

namespace sim {
namespace {

constexpr std::chrono::seconds kPatience(2);

// Where to write the state of a guest. It has a name only when it is complete.
class NewFile {
  public:
    explicit NewFile(const std::string &path)
        : path_(path),
          fd_(open(path.substr(0, path.rfind('/')).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0644)) {
    }
    int descriptor() const { return fd_.get(); }
    void keep() const {
        const std::string self = "/proc/self/fd/" + std::to_string(fd_.get());
        const std::string draft = path_ + "." + std::to_string(getpid());
        if (fsync(fd_.get()) != 0 ||
            linkat(AT_FDCWD, self.c_str(), AT_FDCWD, draft.c_str(), AT_SYMLINK_FOLLOW) != 0)
            return;
        if (rename(draft.c_str(), path_.c_str()) != 0) unlink(draft.c_str());
    }

  private:
    const std::string path_;
    const Descriptor fd_;
};

// The endpoint of a line of QEMU's log about a report that the computer fetched; 0 for others.
std::uint8_t fetchedEndpoint(const std::string &line) {
    constexpr char kSign[] = "interrupt-token-in ep ";
    const std::size_t at = line.find(kSign);
    unsigned endpoint = 0;
    if (at == std::string::npos || sscanf(line.c_str() + at + strlen(kSign), "%2x", &endpoint) != 1)
        return 0;
    return static_cast<std::uint8_t>(endpoint);
}

// Takes whole lines from what is read, until the end.
class LineReader {
  public:
    explicit LineReader(int fd) : fd_(fd) {}
    int descriptor() const { return fd_; }
    template <class Take>
    void read(Take take) {
        constexpr std::size_t kLongest = 4096;
        char chunk[4096];
        const ssize_t n = ::read(fd_, chunk, sizeof chunk);
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (n <= 0) {
            fd_ = -1;  // there is nothing to wait for any more
            return;
        }
        pending_.append(chunk, static_cast<std::size_t>(n));
        for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
            const std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            take(line);
        }
        if (pending_.size() > kLongest) pending_.clear();
    }

  private:
    int fd_;
    std::string pending_;
};

}  // namespace

// ---- one life of the computer, from power on to off

class VirtualPc::Life {
  public:
    Life(VirtualPc &pc, int state)
        : pc_(pc),
          restored_(state >= 0),
          qemu_(std::make_shared<VirtualMachine>(pc.options_.pc, state)),
          cable_(qemu_->takeUsb()),
          output_(qemu_->output()),
          serial_{LineReader(qemu_->serial(0)), LineReader(qemu_->serial(1))} {
        const Lock lock(pc_.mutex_);
        pc_.qemu_ = qemu_;
        pc_.ready_ = pc_.hotPlugged_ = false;
        pc_.pausedSince_.reset();
    }

    // Until the end; why it ended, in words.
    std::string run() {
        std::thread boot([this] { start(); });
        while (serve()) continue;
        qemu_->qmp().end();
        std::string why = qemu_->awaitEnd();
        boot.join();
        const Lock lock(pc_.mutex_);
        pc_.qemu_.reset();
        if (pc_.device_) pc_.device_->reset();
        publish();
        if (qemu_->failed() && !lastWords_.empty()) why += ": " + lastWords_;
        return trouble_.empty() || qemu_->failed() ? why : trouble_;
    }
    // QEMU did not like the saved state, as after an update.
    bool refusedState() const { return restored_ && !restoredWell_ && qemu_->failed(); }

  private:
    // ---- in a thread of its own, because it waits for QEMU's answers

    void start() {
        try {
            tell("qmp_capabilities");
            if (restored_)
                awaitRestored();
            else if (pc_.options_.pc.boot == Boot::kLinux)
                bootLinux();
            tell("device_add", {{"driver", "usb-redir"},
                                {"id", "chip"},
                                {"bus", "usb.0"},
                                {"chardev", "hid"},
                                {"debug", 4}});
            {
                // From now on a cable that is plugged in is plugged into a running computer.
                const Lock lock(pc_.mutex_);
                pc_.pluggedAt_ = Clock::now();
                pc_.hotPlugged_ = false;
            }
            tell("cont");
            started_ = true;
            pc_.setCondition("");
        } catch (const std::exception &error) {
            trouble_ = error.what();
            qemu_->kill();
        }
    }

    // Longer than for a person, because a busy machine may start several computers.
    Qmp::Json tell(const std::string &command, const Qmp::Json &arguments = Qmp::Json::object(),
                   int descriptor = -1) {
        constexpr std::chrono::seconds kLongPatience(60);
        return qemu_->qmp().execute(command, arguments, descriptor, kLongPatience);
    }

    void awaitRestored() {
        constexpr std::chrono::milliseconds kTick(10);
        constexpr int kMost = 6000;
        for (int i = 0; i < kMost; ++i) {
            if (tell("query-status").value("status", "") != "inmigrate") {
                restoredWell_ = true;
                return;
            }
            std::this_thread::sleep_for(kTick);
        }
        throw std::runtime_error("the saved state of the virtual computer does not load");
    }

    // Without the chip, for a state with it cannot be restored.
    void bootLinux() {
        constexpr std::chrono::seconds kLongestBoot(300);
        pc_.setCondition("Linux boots; the next start will be faster");
        tell("cont");
        {
            std::unique_lock<std::mutex> lock(pc_.mutex_);
            pc_.changed_.wait_for(lock, kLongestBoot,
                                  [this] { return pc_.ready_ || pc_.ending_ || ended_; });
            if (!pc_.ready_) throw std::runtime_error("the virtual computer does not boot");
        }
        tell("stop");
        save();
    }

    // A state that cannot be saved costs the next start some time, and nothing else.
    void save() {
        NewFile file(stateFile(pc_.options_.pc));
        if (file.descriptor() < 0) return;
        tell("getfd", {{"fdname", "state"}}, file.descriptor());
        tell("migrate-set-parameters", {{"max-bandwidth", 10000000000}});
        tell("migrate", {{"uri", "fd:state"}});
        constexpr std::chrono::milliseconds kTick(20);
        for (int i = 0; i < 3000; ++i) {
            const std::string status = tell("query-migrate").value("status", "");
            if (status == "completed") file.keep();
            if (status == "completed" || status == "failed") return;
            std::this_thread::sleep_for(kTick);
        }
    }

    // ---- the thread that serves the computer

    bool serve() {
        enum { kWake, kCable, kOutput, kQmp, kSerial, kViewers = kSerial + 2, kCount };
        pollfd ready[kCount] = {{pc_.wake_, POLLIN, 0},
                                {cable_.descriptor(), POLLIN, 0},
                                {output_.descriptor(), POLLIN, 0},
                                {qemu_->qmp().descriptor(), POLLIN, 0},
                                {serial_[0].descriptor(), POLLIN, 0},
                                {serial_[1].descriptor(), POLLIN, 0},
                                {started_ ? viewers_ : -1, POLLIN, 0}};
        if (cable_.blocked()) ready[kCable].events |= POLLOUT;
        poll(ready, kCount, timeout());
        std::uint64_t wakes = 0;
        [[maybe_unused]] const ssize_t size = read(pc_.wake_, &wakes, sizeof wakes);
        if (ready[kOutput].revents != 0)
            output_.read([this](const std::string &line) { log(line); });
        for (std::size_t n = 0; n < 2; ++n)
            if (ready[kSerial + n].revents != 0)
                serial_[n].read([&](const std::string &line) { serialLine(n, line); });
        if (ready[kViewers].revents != 0) acceptViewer();
        serveCable(ready[kCable].revents != 0);
        const auto onEvent = [this](const std::string &event) {
            const Lock lock(pc_.mutex_);
            if (event == "STOP") pc_.pausedSince_ = Clock::now();
            if (event == "RESUME") pc_.pausedSince_.reset();
        };
        if (ready[kQmp].revents == 0 || qemu_->qmp().read(onEvent)) return true;
        const Lock lock(pc_.mutex_);
        ended_ = true;
        pc_.changed_.notify_all();
        return false;
    }

    void serveCable(bool readable) {
        const Lock lock(pc_.mutex_);
        if (pc_.ending_) qemu_->kill();
        followPlug();
        if (readable && !cable_.read() && !cableBroke_) {
            cableBroke_ = true;
            qemu_->kill();  // without its keyboard it is of no use
        }
        cable_.write();
        publish();
        const Trouble now = pc_.trouble();
        if (now != told_ && now != Trouble::kOff && told_ != Trouble::kOff)
            pc_.tell(Event::kPower, pc_.words(now));
        told_ = now;
    }

    // Often enough to notice that something does not happen.
    int timeout() {
        constexpr std::chrono::milliseconds kTick(500);
        const Lock lock(pc_.mutex_);
        const auto now = Clock::now();
        const auto due = pc_.device_ ? pc_.device_->due() : Clock::time_point::max();
        if (due >= now + kTick) return static_cast<int>(kTick.count());
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - now);
        return static_cast<int>(std::max<long long>(left.count(), 0));
    }

    void followPlug() {
        if (plugs_ == pc_.plugs_) return;
        plugs_ = pc_.plugs_;
        cable_.plug(nullptr);
        cable_.plug(pc_.device_.get());
    }

    // What changed at the device, for all who watch the state.
    void publish() {
        State &state = pc_.state_;
        const UsbDevice *device = pc_.device_.get();
        const bool attached = device != nullptr && device->configuration() != 0;
        pc_.setAttached(attached);
        if (const std::uint8_t leds = attached ? device->leds() : std::uint8_t{0};
            leds != state.leds)
            pc_.setLedState(leds);
        pc_.count();
    }

    void log(const std::string &line) {
        const std::uint8_t endpoint = fetchedEndpoint(line);
        if (endpoint == 0) {
            // Its messages begin with its name, and the cable's log with the cable's.
            if (line.rfind("qemu-system", 0) == 0) lastWords_ = line;
            return;
        }
        const Lock lock(pc_.mutex_);
        Bytes report;
        if (!pc_.device_ || !pc_.device_->fetched(endpoint, report)) return;
        pc_.take(endpoint, report);
    }

    void serialLine(std::size_t n, const std::string &line) {
        std::function<void(std::size_t, const std::string &)> callback;
        {
            const Lock lock(pc_.mutex_);
            if (n == 0 && line == "ready") pc_.ready_ = true;
            callback = pc_.onSerialLine_;
            pc_.changed_.notify_all();
        }
        if (callback) callback(n, line);
    }

    void acceptViewer() {
        const Descriptor viewer(accept4(viewers_, nullptr, nullptr, SOCK_CLOEXEC));
        if (!viewer) {
            if (errno != EAGAIN && errno != ECONNABORTED) viewers_ = -1;
            return;
        }
        qemu_->qmp().post("getfd", {{"fdname", "viewer"}}, viewer.get());
        qemu_->qmp().post("add_client",
                          {{"protocol", "vnc"}, {"fdname", "viewer"}, {"skipauth", true}});
    }

    VirtualPc &pc_;
    const bool restored_;
    const std::shared_ptr<VirtualMachine> qemu_;
    UsbCable cable_;
    LineReader output_, serial_[2];
    int viewers_ = pc_.options_.pictureSocket;
    unsigned plugs_ = 0;
    bool ended_ = false, cableBroke_ = false;
    std::atomic<bool> started_{false}, restoredWell_{false};
    Trouble told_ = Trouble::kNone;
    std::string trouble_, lastWords_;
};

// ---- what the chip does; it never waits

VirtualPc::VirtualPc(Options options)
    : options_(std::move(options)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake_ < 0) throw std::runtime_error(std::string("eventfd: ") + strerror(errno));
    VirtualPc::switchOn();
}

VirtualPc::~VirtualPc() {
    VirtualPc::switchOff();
    close(wake_);
}

void VirtualPc::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = write(wake_, &one, sizeof one);
}

void VirtualPc::attach(UsbFace face) {
    {
        const Lock lock(mutex_);
        if (device_ && device_->face() == face) return;
        pullOut();
        device_ = std::make_unique<UsbDevice>(face, options_.buffer);
        ++plugs_;
        pluggedAt_ = Clock::now();
        hotPlugged_ = true;
    }
    wake();
}

void VirtualPc::detach() {
    {
        const Lock lock(mutex_);
        pullOut();
    }
    wake();
}

void VirtualPc::pullOut() {
    if (!device_) return;
    device_->reset();  // what waits is lost
    replaced_ += device_->replaced();
    lost_ += device_->lost();
    device_.reset();
    ++plugs_;
    setAttached(false);
    count();
}

void VirtualPc::put(std::uint8_t endpoint, const Bytes &report) {
    {
        const Lock lock(mutex_);
        if (device_)
            device_->put(endpoint, report);
        else
            ++lost_;
        count();
    }
    wake();
}

void VirtualPc::keyboardReport(const std::uint8_t (&report)[8]) {
    put(UsbDevice::kKeyboardEndpoint, Bytes(std::begin(report), std::end(report)));
}

void VirtualPc::relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                               std::int8_t wheel) {
    const auto byte = [](std::int8_t value) { return static_cast<std::uint8_t>(value); };
    Bytes report{buttons, byte(dx), byte(dy), byte(wheel)};
    if (!isCh9350()) report.insert(report.begin(), 1);
    put(kRelativeEndpoint, report);
}

void VirtualPc::absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel) {
    const auto low = [](int value) { return static_cast<std::uint8_t>(value); };
    Bytes report{buttons, low(x), low(x >> 8), low(y), low(y >> 8), low(wheel)};
    const bool raw = isCh9350();
    if (!raw) report.insert(report.begin(), 2);
    put(raw ? kRelativeEndpoint : kAbsoluteEndpoint, report);
}

bool VirtualPc::isCh9350() const {
    const Lock lock(mutex_);
    return device_ && device_->face() != UsbFace::kCh9329;
}

// ---- what the computer takes; with mutex_ held

void VirtualPc::take(std::uint8_t endpoint, const Bytes &report) {
    state_.taken = Clock::now();
    state_.waitingSince.reset();
    count();
    if (endpoint == UsbDevice::kKeyboardEndpoint) {
        std::uint8_t bytes[8];
        std::copy(report.begin(), report.end(), bytes);
        readKeyboard(bytes);
        return;
    }
    const bool numbered = device_->face() == UsbFace::kCh9329;
    const std::uint8_t *data = report.data() + (numbered ? 1 : 0);
    const auto signedAt = [&](int i) { return static_cast<std::int8_t>(data[i]); };
    const bool relative =
        numbered ? endpoint == kRelativeEndpoint : device_->face() == UsbFace::kCh9350Relative;
    if (relative)
        readRelative(data[0], signedAt(1), signedAt(2), signedAt(3));
    else
        readAbsolute(device_->face(), data[0], data[1] | data[2] << 8, data[3] | data[4] << 8,
                     signedAt(5));
}

void VirtualPc::count() {
    state_.waiting = device_ ? device_->waiting() : 0;
    state_.replaced = replaced_ + (device_ ? device_->replaced() : 0);
    state_.lost = lost_ + (device_ ? device_->lost() : 0);
    if (state_.waiting == 0)
        state_.waitingSince.reset();
    else if (!state_.waitingSince)
        state_.waitingSince = Clock::now();
    changed_.notify_all();
}

// ---- what a person does

void VirtualPc::live() {
    bool restore = options_.pc.boot == Boot::kLinux && hasState(options_.pc);
    for (;;) {
        std::string why;
        bool refused = false;
        try {
            const Descriptor state = restore ? openState(options_.pc) : Descriptor();
            Life life(*this, state.get());
            why = life.run();
            refused = life.refusedState();
        } catch (const std::exception &error) {
            why = error.what();
        }
        const Lock lock(mutex_);
        if (refused && !ending_) {
            unlink(stateFile(options_.pc).c_str());
            restore = false;
            continue;
        }
        living_ = false;
        condition_ = ending_ ? "the computer is off" : "the computer is off: " + why;
        tell(Event::kPower, condition_);
        changed_.notify_all();
        return;
    }
}

bool VirtualPc::switchOn() {
    const std::lock_guard<std::mutex> turn(switching_);
    {
        const Lock lock(mutex_);
        if (living_) return false;
        living_ = true;
        ending_ = false;
        condition_ = "the computer starts";
        tell(Event::kPower, condition_);
    }
    if (thread_.joinable()) thread_.join();
    thread_ = std::thread([this] { live(); });
    return true;
}

void VirtualPc::switchOff() {
    const std::lock_guard<std::mutex> turn(switching_);
    {
        const Lock lock(mutex_);
        ending_ = true;
        if (qemu_) qemu_->kill();
    }
    wake();
    if (thread_.joinable()) thread_.join();
}

void VirtualPc::setCondition(const std::string &words) {
    const Lock lock(mutex_);
    condition_ = words;
    tell(Event::kPower, words.empty() ? "the computer is on" : words);
}

// With mutex_ held.
VirtualPc::Trouble VirtualPc::trouble() const {
    if (!condition_.empty()) return Trouble::kOff;
    const auto patient = [now = Clock::now()](const auto &since) {
        return !since || now - *since <= kPatience;
    };
    // Not the moment in which its screen is read.
    if (!patient(pausedSince_)) return Trouble::kPaused;
    if (device_ && device_->configuration() == 0 && !patient(pluggedAt_)) return Trouble::kUntaken;
    return patient(state_.waitingSince) ? Trouble::kNone : Trouble::kStuck;
}

// With mutex_ held.
std::string VirtualPc::words(Trouble trouble) const {
    switch (trouble) {
        case Trouble::kOff:
            return condition_;
        case Trouble::kPaused:
            return "the computer is paused";
        case Trouble::kUntaken:
            return hotPlugged_ && options_.pc.boot != Boot::kLinux
                       ? "the computer has not taken the keyboard and mouse, which were plugged in "
                         "while it ran; firmware and boot loaders look for them at their start "
                         "only: \"ctl computer reset\""
                       : "the computer has not taken the keyboard and mouse for " +
                             secondsSince(*pluggedAt_);
        case Trouble::kStuck:
            return "the computer has not fetched a report for " +
                   secondsSince(*state_.waitingSince);
        default:
            return "the computer is on";
    }
}

std::string VirtualPc::condition() const {
    const Lock lock(mutex_);
    return words(trouble());
}

std::shared_ptr<VirtualMachine> VirtualPc::qemu() const {
    const Lock lock(mutex_);
    return qemu_;
}

std::shared_ptr<VirtualMachine> VirtualPc::running() const {
    auto qemu = this->qemu();
    if (!qemu) throw std::runtime_error("the computer is off");
    return qemu;
}

std::unique_lock<std::timed_mutex> VirtualPc::turnToLook() {
    constexpr std::chrono::seconds kLongest(1);
    std::unique_lock<std::timed_mutex> turn(looking_, kLongest);
    if (!turn) throw std::runtime_error("the virtual computer does not answer");
    return turn;
}

Machine::Screen VirtualPc::screen() {
    const auto turn = turnToLook();
    Screen screen = readTextScreen(running()->qmp());
    if (!screen.lines.empty()) return screen;
    const std::string png = picture(*running());
    const auto number = [&](std::size_t at) {  // big-endian, in the header of a PNG
        int value = 0;
        for (std::size_t i = at; i < at + 4 && i < png.size(); ++i)
            value = value << 8 | static_cast<unsigned char>(png[i]);
        return value;
    };
    constexpr std::size_t kWidthAt = 16, kHeightAt = 20;
    screen.width = number(kWidthAt);
    screen.height = number(kHeightAt);
    return screen;
}

std::string VirtualPc::screenshot() {
    const auto turn = turnToLook();
    return picture(*running());
}

std::string VirtualPc::picture(VirtualMachine &qemu) {
    const Descriptor file(memfd_create("picture", MFD_CLOEXEC));
    // QEMU takes a descriptor that can be written to, and no more.
    const Descriptor toWrite(
        open(("/proc/self/fd/" + std::to_string(file.get())).c_str(), O_WRONLY | O_CLOEXEC));
    if (!file || !toWrite)
        throw std::runtime_error(std::string("no room for a picture: ") + strerror(errno));
    constexpr int kSet = 1000;
    const Qmp::Json set{{"fdset-id", kSet}};
    try {
        qemu.qmp().execute("add-fd", set, toWrite.get());
        qemu.qmp().execute("screendump",
                           {{"filename", "/dev/fdset/" + std::to_string(kSet)}, {"format", "png"}});
        qemu.qmp().execute("remove-fd", set);
    } catch (...) {
        qemu.qmp().post("remove-fd", set);
        throw;
    }
    constexpr off_t kLargest = 64 << 20;
    std::string png(
        static_cast<std::size_t>(std::clamp<off_t>(lseek(file.get(), 0, SEEK_END), 0, kLargest)),
        '\0');
    if (pread(file.get(), png.data(), png.size(), 0) != static_cast<ssize_t>(png.size()))
        png.clear();
    if (png.empty()) throw std::runtime_error("the virtual computer has no picture");
    return png;
}

void VirtualPc::reset() {
    {
        const Lock lock(mutex_);
        if (living_ && !condition_.empty()) throw std::runtime_error(condition_);
    }
    running()->qmp().execute("system_reset");
    const Lock lock(mutex_);
    pluggedAt_ = Clock::now();
    hotPlugged_ = false;
}

void VirtualPc::onSerialLine(std::function<void(std::size_t, const std::string &)> callback) {
    const Lock lock(mutex_);
    onSerialLine_ = std::move(callback);
}

void VirtualPc::writeSerial(const std::string &text) {
    const auto machine = running();
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t n =
            send(machine->serial(0), text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) throw std::runtime_error("the computer's serial port is closed");
        sent += static_cast<std::size_t>(n);
    }
}

}  // namespace sim
