// The chip's side of the USB: its descriptors, the computer's requests, and the reports that wait
// until the computer fetches them. It knows no wire and starts no thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "sim/computer/computer.h"

namespace sim {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

/// How many reports of an endpoint a chip keeps until the computer fetches them. What real chips do
/// is not known.
enum class ReportBuffer { kQueue, kOne };

/// Full speed, with an interrupt endpoint for each interface: the keyboard's first. Not safe to use
/// from several threads.
class UsbDevice {
  public:
    static constexpr std::size_t kQueueSize = 32;
    static constexpr std::uint8_t kKeyboardEndpoint = 0x81;

    UsbDevice(UsbFace face, ReportBuffer buffer);

    struct Interface {
        std::uint8_t subclass, protocol;  ///< 1 and 1: a keyboard that firmware can use
        Bytes reportDescriptor;
    };
    UsbFace face() const { return face_; }
    std::uint16_t vendor() const { return 0x1A86; }
    std::uint16_t product() const;
    std::size_t interfaces() const { return interfaces_.size(); }
    const Interface &interface(std::size_t n) const { return interfaces_[n]; }
    /// Interval at which the computer is asked to poll, ms.
    static constexpr std::uint8_t kInterval = 10;
    static constexpr std::uint8_t kPacketSize = 8;
    static std::uint8_t endpointOf(std::size_t interface) {
        return static_cast<std::uint8_t>(kKeyboardEndpoint + interface);
    }

    /// A control request, with the fields of its setup packet; data is what comes with it.
    struct Request {
        std::uint8_t type, request;
        std::uint16_t value, index, length;
    };
    /// The bytes for the computer, at most request.length; none: the request is refused (stalled).
    std::optional<Bytes> control(const Request &request, const Bytes &data);

    /// As after plugging in: not configured, nothing waits.
    void reset();
    void configure(std::uint8_t configuration);
    std::uint8_t configuration() const { return configuration_; }
    /// As the computer set them by the keyboard's output report.
    std::uint8_t leds() const { return leds_; }

    /// The computer polls the endpoint now, or stopped to.
    void poll(std::uint8_t endpoint, bool polled);

    /// A report from the chip. Before the device is configured it is lost.
    void put(std::uint8_t endpoint, const Bytes &report);
    /// The report to hand over now, if the endpoint is polled and the one before was fetched; also
    /// the last one once more, where SET_IDLE asked for that. It is on its way until fetched().
    std::optional<Bytes> next(std::uint8_t endpoint, Clock::time_point now);
    /// The computer has the report that was on its way; true for one that the chip put, false for
    /// a repetition, or none.
    bool fetched(std::uint8_t endpoint, Bytes &report);
    /// When next() may have a repetition; max for never.
    Clock::time_point due() const;

    /// Reports that the computer has not fetched, those on their way included.
    std::size_t waiting() const;
    /// Reports that were replaced by a newer one, because the buffer was full; and those lost,
    /// because no computer had the device configured.
    unsigned replaced() const { return replaced_; }
    unsigned lost() const { return lost_; }

  private:
    struct Endpoint {
        bool polled = false;
        std::deque<Bytes> queue;
        std::optional<Bytes> onItsWay;
        bool repetition = false;
        Bytes last;
        Clock::duration idle{};  ///< 0: repeat nothing
        Clock::time_point repeatAt = Clock::time_point::max();
        std::uint8_t protocol = 1;  ///< 1: report protocol, 0: boot protocol
    };

    Endpoint *at(std::uint8_t endpoint);
    std::optional<Bytes> descriptor(const Request &request) const;
    Bytes configurationDescriptor() const;
    Bytes stringDescriptor(std::uint8_t index) const;
    std::optional<Bytes> classRequest(const Request &request, const Bytes &data);

    UsbFace face_;
    ReportBuffer buffer_;
    std::vector<Interface> interfaces_;
    std::vector<Endpoint> endpoints_;
    std::uint8_t configuration_ = 0, leds_ = 0;
    unsigned replaced_ = 0, lost_ = 0;
};

}  // namespace sim
