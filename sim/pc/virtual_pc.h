// A virtual PC at the end of the chip's USB cable: firmware, boot loader and system are real ones.
#pragma once

#include <memory>
#include <thread>

#include "sim/computer/computer.h"
#include "sim/pc/virtual_machine.h"
#include "sim/usb/usb_device.h"

namespace sim {

class VirtualPc : public Computer, public Machine {
  public:
    struct Options {
        PcOptions pc;
        ReportBuffer buffer = ReportBuffer::kQueue;
        int pictureSocket = -1;   ///< listening; who connects gets the picture (RFB)
        std::string picturePath;  ///< where that one listens
    };

    /// Starts to switch it on; what goes wrong is in condition().
    explicit VirtualPc(Options options);
    ~VirtualPc() override;

    Machine *machine() override { return this; }

    void attach(UsbFace face) override;
    void detach() override;
    void keyboardReport(const std::uint8_t (&report)[8]) override;
    void absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel) override;
    void relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                        std::int8_t wheel) override;

    Screen screen() override;
    std::string screenshot() override;
    void reset() override;
    bool switchOn() override;
    void switchOff() override;
    std::string condition() const override;
    std::string picture() const override { return options_.picturePath; }

    /// Calls back for every line on a serial port of the computer, 0 or 1, from its thread.
    void onSerialLine(std::function<void(std::size_t, const std::string &)> callback);
    /// Writes to its first serial port.
    void writeSerial(const std::string &text);
    /// QEMU itself; null while it is off.
    std::shared_ptr<VirtualMachine> qemu() const;

  private:
    class Life;
    friend class Life;

    static constexpr std::uint8_t kRelativeEndpoint = 0x82, kAbsoluteEndpoint = 0x83;

    enum class Trouble { kNone, kOff, kPaused, kUntaken, kStuck };

    void put(std::uint8_t endpoint, const Bytes &report);
    void pullOut();
    bool isCh9350() const;
    void take(std::uint8_t endpoint, const Bytes &report);
    void count();
    void live();
    void wake() const;
    void setCondition(const std::string &words);
    Trouble trouble() const;
    std::string words(Trouble trouble) const;
    std::unique_lock<std::timed_mutex> turnToLook();
    std::shared_ptr<VirtualMachine> running() const;
    static std::string picture(VirtualMachine &qemu);

    const Options options_;
    const int wake_;
    std::mutex switching_;  ///< one person at a time
    std::timed_mutex looking_;
    std::thread thread_;

    // With mutex_ held:
    std::shared_ptr<VirtualMachine> qemu_;
    std::unique_ptr<UsbDevice> device_;  ///< null: not plugged in
    unsigned plugs_ = 0;                 ///< counts changes of device_
    std::optional<Clock::time_point> pluggedAt_, pausedSince_;
    unsigned replaced_ = 0, lost_ = 0;  ///< of former devices
    bool living_ = false, ending_ = false, ready_ = false, hotPlugged_ = false;
    std::string condition_;
    std::function<void(std::size_t, const std::string &)> onSerialLine_;
};

}  // namespace sim
