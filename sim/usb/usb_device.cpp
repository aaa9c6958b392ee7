#include "sim/usb/usb_device.h"

#include <algorithm>
#include <string>

namespace sim {
namespace {

// Request types and codes of the USB and HID standards.
enum : std::uint8_t {
    kClass = 0x20,
    kKindOfRequest = 0x60,
    kGetStatus = 0,
    kClearFeature = 1,
    kSetFeature = 3,
    kGetDescriptor = 6,
    kGetReport = 1,
    kGetIdle = 2,
    kGetProtocol = 3,
    kSetReport = 9,
    kSetIdle = 10,
    kSetProtocol = 11
};
enum : std::uint8_t {
    kDevice = 1,
    kConfiguration = 2,
    kString = 3,
    kInterface = 4,
    kEndpoint = 5,
    kHid = 0x21,
    kReport = 0x22
};
constexpr std::uint8_t kOutputReport = 2;
constexpr auto kIdleUnit = std::chrono::milliseconds(4);
constexpr std::size_t kHidDescriptorSize = 9;

// 8 bytes: modifiers, 0, six usages; an output report with the lock LEDs.
const Bytes kKeyboard{0x05, 0x01, 0x09, 0x06, 0xA1, 0x01, 0x05, 0x07, 0x19, 0xE0, 0x29, 0xE7, 0x15,
                      0x00, 0x25, 0x01, 0x75, 0x01, 0x95, 0x08, 0x81, 0x02, 0x95, 0x01, 0x75, 0x08,
                      0x81, 0x03, 0x95, 0x03, 0x75, 0x01, 0x05, 0x08, 0x19, 0x01, 0x29, 0x03, 0x91,
                      0x02, 0x95, 0x05, 0x75, 0x01, 0x91, 0x03, 0x95, 0x06, 0x75, 0x08, 0x15, 0x00,
                      0x26, 0xFF, 0x00, 0x05, 0x07, 0x19, 0x00, 0x29, 0xFF, 0x81, 0x00, 0xC0};

Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A mouse with five buttons; id 0: its reports have no number.
Bytes mouse(std::uint8_t id, const Bytes &axes) {
    Bytes bytes{0x05, 0x01, 0x09, 0x02, 0xA1, 0x01, 0x09, 0x01, 0xA1, 0x00};
    if (id != 0) bytes = bytes + Bytes{0x85, id};
    return bytes + Bytes{0x05, 0x09, 0x19, 0x01, 0x29, 0x05, 0x15, 0x00, 0x25, 0x01, 0x95,
                         0x05, 0x75, 0x01, 0x81, 0x02, 0x95, 0x01, 0x75, 0x03, 0x81, 0x03} +
           axes + Bytes{0xC0, 0xC0};
}

// One signed byte for each of dx, dy and wheel.
Bytes relativeMouse(std::uint8_t id) {
    return mouse(id, {0x05, 0x01, 0x09, 0x30, 0x09, 0x31, 0x09, 0x38, 0x15, 0x81, 0x25, 0x7F, 0x75,
                      0x08, 0x95, 0x03, 0x81, 0x06});
}

// Two bytes for each of x and y, from 0 to steps - 1, and a signed byte for the wheel.
Bytes absoluteMouse(std::uint8_t id, int steps) {
    const auto low = static_cast<std::uint8_t>(steps - 1);
    const auto high = static_cast<std::uint8_t>((steps - 1) >> 8);
    return mouse(id, {0x05, 0x01, 0x09, 0x30, 0x09, 0x31, 0x15, 0x00, 0x26, low,  high, 0x35, 0x00,
                      0x46, low,  high, 0x75, 0x10, 0x95, 0x02, 0x81, 0x02, 0x09, 0x38, 0x15, 0x81,
                      0x25, 0x7F, 0x35, 0x00, 0x45, 0x00, 0x75, 0x08, 0x95, 0x01, 0x81, 0x06});
}

// Nobody has published the descriptors of these chips; a mouse is an interface of its own, because
// Linux drops the buttons of a second one in the same interface.
std::vector<UsbDevice::Interface> interfacesOf(UsbFace face) {
    const UsbDevice::Interface keyboard{1, 1, kKeyboard};
    switch (face) {
        case UsbFace::kCh9329:
            return {keyboard, {0, 0, relativeMouse(1)}, {0, 0, absoluteMouse(2, stepsOf(face))}};
        case UsbFace::kCh9350Relative:
            return {keyboard, {0, 0, relativeMouse(0)}};
        default:
            return {keyboard, {0, 0, absoluteMouse(0, stepsOf(face))}};
    }
}

Bytes word(std::size_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
}

Bytes hidDescriptor(const Bytes &report) {
    return Bytes{kHidDescriptorSize, kHid, 0x10, 0x01, 0, 1, kReport} + word(report.size());
}

}  // namespace

UsbDevice::UsbDevice(UsbFace face, ReportBuffer buffer)
    : face_(face),
      buffer_(buffer),
      interfaces_(interfacesOf(face)),
      endpoints_(interfaces_.size()) {}

std::uint16_t UsbDevice::product() const {
    // That of a CH9350 can be set; this one is a choice.
    return face_ == UsbFace::kCh9329 ? 0xE129 : 0x9350;
}

UsbDevice::Endpoint *UsbDevice::at(std::uint8_t endpoint) {
    const unsigned n = endpoint - kKeyboardEndpoint;
    return n < endpoints_.size() ? &endpoints_[n] : nullptr;
}

void UsbDevice::reset() {
    configure(0);
    leds_ = 0;
}

void UsbDevice::configure(std::uint8_t configuration) {
    lost_ += static_cast<unsigned>(waiting());
    configuration_ = configuration;
    for (Endpoint &endpoint : endpoints_) endpoint = Endpoint();
}

void UsbDevice::poll(std::uint8_t endpoint, bool polled) {
    if (Endpoint *which = at(endpoint)) {
        which->polled = polled;
        which->onItsWay.reset();
    }
}

// ---- reports

void UsbDevice::put(std::uint8_t endpoint, const Bytes &report) {
    Endpoint *which = at(endpoint);
    if (which == nullptr || configuration_ == 0) {
        ++lost_;
        return;
    }
    if (which->queue.size() >= (buffer_ == ReportBuffer::kOne ? 1 : kQueueSize)) {
        which->queue.back() = report;
        ++replaced_;
    } else {
        which->queue.push_back(report);
    }
}

std::optional<Bytes> UsbDevice::next(std::uint8_t endpoint, Clock::time_point now) {
    Endpoint *which = at(endpoint);
    if (which == nullptr || !which->polled || which->onItsWay) return std::nullopt;
    which->repetition = which->queue.empty();
    if (which->repetition) {
        if (which->idle == Clock::duration{} || now < which->repeatAt) return std::nullopt;
        which->onItsWay = which->last;
    } else {
        which->onItsWay = which->last = which->queue.front();
        which->queue.pop_front();
    }
    return which->onItsWay;
}

bool UsbDevice::fetched(std::uint8_t endpoint, Bytes &report) {
    Endpoint *which = at(endpoint);
    if (which == nullptr || !which->onItsWay) return false;
    report = *which->onItsWay;
    which->onItsWay.reset();
    which->repeatAt = Clock::now() + which->idle;
    return !which->repetition;
}

Clock::time_point UsbDevice::due() const {
    Clock::time_point first = Clock::time_point::max();
    for (const Endpoint &endpoint : endpoints_)
        if (endpoint.idle != Clock::duration{} && endpoint.polled && !endpoint.onItsWay)
            first = std::min(first, endpoint.repeatAt);
    return first;
}

std::size_t UsbDevice::waiting() const {
    std::size_t count = 0;
    for (const Endpoint &endpoint : endpoints_)
        count += endpoint.queue.size() + (endpoint.onItsWay && !endpoint.repetition ? 1 : 0);
    return count;
}

// ---- requests

Bytes UsbDevice::configurationDescriptor() const {
    Bytes bytes;
    for (std::size_t n = 0; n < interfaces_.size(); ++n) {
        const Interface &interface = interfaces_[n];
        bytes = bytes + Bytes{9, kInterface,         static_cast<std::uint8_t>(n), 0, 1,
                              3, interface.subclass, interface.protocol,           0} +
                hidDescriptor(interface.reportDescriptor) +
                Bytes{7, kEndpoint, endpointOf(n), 3, kPacketSize, 0, kInterval};
    }
    constexpr std::uint8_t kRemoteWakeup = 0xA0, kCurrent = 35;  // in units of 2 mA
    return Bytes{9, kConfiguration} + word(bytes.size() + 9) +
           Bytes{static_cast<std::uint8_t>(interfaces_.size()), 1, 0, kRemoteWakeup, kCurrent} +
           bytes;
}

Bytes UsbDevice::stringDescriptor(std::uint8_t index) const {
    if (index == 0) return {4, kString, 0x09, 0x04};  // the languages: English
    const std::string text = index == 1 ? "simulated" : "UART to keyboard and mouse";
    Bytes bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), kString};
    for (const char c : text) bytes = bytes + word(static_cast<unsigned char>(c));
    return bytes;
}

std::optional<Bytes> UsbDevice::descriptor(const Request &request) const {
    const auto index = static_cast<std::uint8_t>(request.value);
    const bool known = request.index < interfaces_.size();
    switch (request.value >> 8) {
        case kDevice:
            return Bytes{18, kDevice, 0x10, 0x01, 0, 0, 0, kPacketSize} + word(vendor()) +
                   word(product()) + Bytes{0x00, 0x01, 1, 2, 0, 1};
        case kConfiguration:
            return configurationDescriptor();
        case kString:
            return index <= 2 ? std::optional(stringDescriptor(index)) : std::nullopt;
        case kHid:
            if (!known) return std::nullopt;
            return hidDescriptor(interfaces_[request.index].reportDescriptor);
        case kReport:
            if (!known) return std::nullopt;
            return interfaces_[request.index].reportDescriptor;
        default:
            return std::nullopt;
    }
}

std::optional<Bytes> UsbDevice::classRequest(const Request &request, const Bytes &data) {
    if (request.index >= endpoints_.size()) return std::nullopt;
    Endpoint &endpoint = endpoints_[request.index];
    switch (request.request) {
        case kGetReport:
            return endpoint.last.empty() ? Bytes(kPacketSize) : endpoint.last;
        case kGetIdle:
            return Bytes{static_cast<std::uint8_t>(endpoint.idle / kIdleUnit)};
        case kGetProtocol:
            return Bytes{endpoint.protocol};
        case kSetReport:
            if (request.index == 0 && request.value >> 8 == kOutputReport && !data.empty())
                leds_ = data[0] & 0x07;
            return Bytes{};
        case kSetIdle:
            if (request.index != 0) return Bytes{};  // a movement must not come twice
            endpoint.idle = kIdleUnit * (request.value >> 8);
            endpoint.repeatAt =
                endpoint.last.empty() ? Clock::time_point::max() : Clock::now() + endpoint.idle;
            return Bytes{};
        case kSetProtocol:
            endpoint.protocol = request.value != 0 ? 1 : 0;  // the report is the same in both
            return Bytes{};
        default:
            return std::nullopt;
    }
}

std::optional<Bytes> UsbDevice::control(const Request &request, const Bytes &data) {
    std::optional<Bytes> answer;
    if ((request.type & kKindOfRequest) == kClass) {
        answer = classRequest(request, data);
    } else if ((request.type & kKindOfRequest) == 0) {
        if (request.request == kGetDescriptor) answer = descriptor(request);
        if (request.request == kGetStatus) answer = Bytes{0, 0};
        if (request.request == kClearFeature || request.request == kSetFeature) answer = Bytes{};
    }
    if (answer && answer->size() > request.length) answer->resize(request.length);
    return answer;
}

}  // namespace sim
