#include "sim/chips/ch9329.h"

#include <algorithm>
#include <chrono>

namespace sim {
namespace {

using Lock = std::lock_guard<std::mutex>;

constexpr std::size_t kHeadSize = 5;  // 57 AB, address, command, data length
constexpr std::size_t kLargestData = 64;
constexpr std::uint8_t kBroadcast = 0xFF;

constexpr std::size_t kAddressAt = 2, kSpeedAt = 3, kGapAt = 9;  // in the parameter block

// How long a restarted chip is deaf is not published; hosts wait half a second and more.
constexpr auto kRestartTime = std::chrono::milliseconds(200);

constexpr int kSpeeds[] = {1200, 2400, 4800, 9600, 14400, 19200, 38400, 57600, 115200};

Ch9329::Parameters defaultParameters(int baud) {
    Ch9329::Parameters block{0x80, 0x80, 0x00, 0,    0,    0,    0,    0x08, 0x00, 0x00, 0x03,
                             0x86, 0x1A, 0x29, 0xE1, 0x00, 0x00, 0x00, 0x01, 0x00, 0x0D};
    for (std::size_t i = 0; i < 4; ++i)
        block[kSpeedAt + i] = static_cast<std::uint8_t>(baud >> (24 - 8 * i));
    return block;
}

int speedIn(const std::uint8_t *block) {
    unsigned speed = 0;
    for (std::size_t i = 0; i < 4; ++i) speed = speed << 8 | block[kSpeedAt + i];
    return static_cast<int>(speed);
}

std::uint8_t sumOf(const Bytes &bytes) {
    unsigned sum = 0;
    for (const std::uint8_t byte : bytes) sum += byte;
    return static_cast<std::uint8_t>(sum);
}

}  // namespace

enum Ch9329::Status : std::uint8_t {
    kDone = 0x00,
    kUnknownCommand = 0xE3,
    kWrongSum = 0xE4,
    kWrongParameter = 0xE5
};

Ch9329::Ch9329(Computer &computer, int baud, int storedBaud)
    : computer_(computer), baud_(baud), parameters_(defaultParameters(storedBaud)) {
    computer_.attach(UsbFace::kCh9329);
}

int Ch9329::baud() {
    const Lock lock(mutex_);
    return baud_;
}

int Ch9329::storedBaud() const {
    const Lock lock(mutex_);
    return speedIn(parameters_.data());
}

Ch9329::Parameters Ch9329::parameters() const {
    const Lock lock(mutex_);
    return parameters_;
}

void Ch9329::powerCycle() {
    const Lock lock(mutex_);
    if (forgets_) parameters_ = defaultParameters(9600);
    restart(Clock::now());
    deafUntil_ = {};  // ready at once, so that no caller has to wait
}

void Ch9329::plug() {
    const Lock lock(mutex_);
    plugged_ = true;
    computer_.attach(UsbFace::kCh9329);
}

void Ch9329::unplug() {
    const Lock lock(mutex_);
    plugged_ = false;
    computer_.detach();
}

void Ch9329::silence(bool on) {
    const Lock lock(mutex_);
    silent_ = on;
}

void Ch9329::answerLate(Clock::duration delay) {
    const Lock lock(mutex_);
    late_ = delay;
}

void Ch9329::splitAnswers(std::size_t bytes, Clock::duration pause) {
    const Lock lock(mutex_);
    splitAfter_ = bytes;
    splitPause_ = pause;
}

void Ch9329::spoilAnswers(bool on) {
    const Lock lock(mutex_);
    spoiled_ = on;
}

void Ch9329::forgetOnPowerLoss(bool on) {
    const Lock lock(mutex_);
    forgets_ = on;
}

void Ch9329::lose(const Losses &losses) {
    const Lock lock(mutex_);
    losses_ = losses;
}

void Ch9329::strictPackets(bool on) {
    const Lock lock(mutex_);
    strict_ = on;
}

Ch9329::Counters Ch9329::counters() const {
    const Lock lock(mutex_);
    return counters_;
}

void Ch9329::onFrame(std::function<void(const Bytes &, Clock::time_point)> callback) {
    const Lock lock(mutex_);
    callback_ = std::move(callback);
}

void Ch9329::restart(Clock::time_point now) {
    baud_ = speedIn(parameters_.data());
    pending_.clear();
    deafUntil_ = now + kRestartTime;
    computer_.detach();
    if (plugged_) computer_.attach(UsbFace::kCh9329);
}

// Size of the frame that pending_ begins with; 0 while bytes are missing.
std::size_t Ch9329::frameSize() const {
    if (pending_.size() < kHeadSize) return 0;
    const std::size_t size = kHeadSize + pending_[4] + 1;
    return pending_.size() < size ? 0 : size;
}

void Ch9329::receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                     Clock::time_point at) {
    const Lock lock(mutex_);
    const auto gap = std::chrono::milliseconds(parameters_[kGapAt] << 8 | parameters_[kGapAt + 1]);
    if (!pending_.empty() && at - lastByte_ > gap + line.jitter()) {
        // The gap ends the packet. Whether a cut frame is answered is not known; here it is not.
        counters_.skipped += static_cast<unsigned>(pending_.size());
        pending_.clear();
    }
    lastByte_ = at;
    if (at < deafUntil_) return;
    pending_.insert(pending_.end(), bytes, bytes + count);
    while (!pending_.empty()) {
        const bool begins = pending_[0] == 0x57 && (pending_.size() < 2 || pending_[1] == 0xAB) &&
                            (pending_.size() < kHeadSize || pending_[4] <= kLargestData);
        if (!begins) {
            pending_.erase(pending_.begin());
            ++counters_.skipped;
            continue;
        }
        const std::size_t size = frameSize();
        if (size == 0) return;
        const auto end = pending_.begin() + static_cast<long>(size);
        const Bytes frame(pending_.begin(), end);
        pending_.erase(pending_.begin(), strict_ ? pending_.end() : end);
        if (!losses_.happen()) handleFrame(line, frame, at);
    }
}

void Ch9329::handleFrame(SerialLine &line, const Bytes &frame, Clock::time_point at) {
    const std::uint8_t own = parameters_[kAddressAt], address = frame[2], command = frame[3];
    if (own != 0 && address != own && address != kBroadcast) return;
    const bool answered = address != kBroadcast;

    Status status = kWrongSum;
    Bytes answer;
    const bool right = sumOf(Bytes(frame.begin(), frame.end() - 1)) == frame.back();
    if (right && !losses_.happen()) {
        ++counters_.frames;
        if (callback_) callback_(frame, at);
        status = carryOut(command, Bytes(frame.begin() + kHeadSize, frame.end() - 1), answer);
        if (status != kDone) ++counters_.refused;
    } else {
        ++counters_.wrongSums;
    }
    if (answer.empty()) answer = {status};
    if (answered)
        reply(line, static_cast<std::uint8_t>(command | (status == kDone ? 0x80 : 0xC0)), answer);
    // The answer to a reset leaves at the old speed.
    if (command == 0x0F && status == kDone) restart(at);
}

Ch9329::Status Ch9329::carryOut(std::uint8_t command, const Bytes &data, Bytes &answer) {
    const auto bare = [&] { return data.empty() ? kDone : kWrongParameter; };
    switch (command) {
        case 0x01:
            if (data.empty()) answer = information();
            return bare();
        case 0x02:
            return keyboard(data);
        case 0x03:  // media keys: accepted, and ignored by this computer
            return (data.size() == 4 && data[0] == 2) || (data.size() == 2 && data[0] == 1)
                       ? kDone
                       : kWrongParameter;
        case 0x04:
            return absoluteMouse(data);
        case 0x05:
            return relativeMouse(data);
        case 0x06:  // custom HID data
            return kDone;
        case 0x08:
            if (data.empty()) answer.assign(parameters_.begin(), parameters_.end());
            return bare();
        case 0x09:
            return setParameters(data);
        case 0x0A:
            return readString(data, answer);
        case 0x0B:
            return writeString(data);
        case 0x0C:
            if (data.empty()) parameters_ = defaultParameters(9600);
            return bare();
        case 0x0F:
            return bare();
        default:
            return kUnknownCommand;
    }
}

Bytes Ch9329::information() const {
    constexpr std::uint8_t kVersion = 0x38;  // seen on common boards
    const Computer::State state = computer_.state();
    const std::uint8_t usb = state.attached ? 1 : 0;
    const std::uint8_t leds = state.attached ? state.leds : std::uint8_t{0};
    return {kVersion, usb, leds, 0, 0, 0, 0, 0};
}

Ch9329::Status Ch9329::setParameters(const Bytes &data) {
    if (data.size() != kParameterSize) return kWrongParameter;
    const int speed = speedIn(data.data());
    if (std::find(std::begin(kSpeeds), std::end(kSpeeds), speed) == std::end(kSpeeds))
        return kWrongParameter;
    std::copy(data.begin(), data.end(), parameters_.begin());  // takes effect at the next restart
    return kDone;
}

Ch9329::Status Ch9329::keyboard(const Bytes &data) {
    if (data.size() != 8 || data[1] != 0) return kWrongParameter;
    std::uint8_t report[8];
    std::copy(data.begin(), data.end(), report);
    computer_.keyboardReport(report);
    return kDone;
}

Ch9329::Status Ch9329::absoluteMouse(const Bytes &data) {
    if (data.size() != 7 || data[0] != 2) return kWrongParameter;
    computer_.absoluteReport(data[1], data[2] | data[3] << 8, data[4] | data[5] << 8,
                             static_cast<std::int8_t>(data[6]));
    return kDone;
}

Ch9329::Status Ch9329::relativeMouse(const Bytes &data) {
    if (data.size() != 5 || data[0] != 1) return kWrongParameter;
    computer_.relativeReport(data[1], static_cast<std::int8_t>(data[2]),
                             static_cast<std::int8_t>(data[3]), static_cast<std::int8_t>(data[4]));
    return kDone;
}

Ch9329::Status Ch9329::readString(const Bytes &data, Bytes &answer) const {
    if (data.size() != 1 || data[0] >= strings_.size()) return kWrongParameter;
    const std::string &text = strings_[data[0]];
    answer = {data[0], static_cast<std::uint8_t>(text.size())};
    answer.insert(answer.end(), text.begin(), text.end());
    return kDone;
}

Ch9329::Status Ch9329::writeString(const Bytes &data) {
    constexpr std::size_t kLongestString = 23;
    if (data.size() < 2 || data[0] >= strings_.size() || data[1] > kLongestString ||
        data.size() != 2U + data[1])
        return kWrongParameter;
    strings_[data[0]].assign(data.begin() + 2, data.end());
    return kDone;
}

void Ch9329::reply(SerialLine &line, std::uint8_t code, const Bytes &data) {
    if (silent_ || losses_.happen()) return;
    const std::uint8_t head[] = {0x57, 0xAB, 0x00, code, static_cast<std::uint8_t>(data.size())};
    Bytes frame(kHeadSize + data.size());
    std::copy(data.begin(), data.end(), std::copy(std::begin(head), std::end(head), frame.begin()));
    frame.push_back(static_cast<std::uint8_t>(sumOf(frame) + (spoiled_ ? 1 : 0)));
    if (splitAfter_ == 0 || splitAfter_ >= frame.size()) {
        line.send(frame, baud_, late_);
        return;
    }
    const auto middle = frame.begin() + static_cast<long>(splitAfter_);
    line.send(Bytes(frame.begin(), middle), baud_, late_);
    line.send(Bytes(middle, frame.end()), baud_, splitPause_);
}

}  // namespace sim
