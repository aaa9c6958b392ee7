// A CH9329: serial frames in, USB reports out, as far as the real chip's behaviour is known.
// Comments name what is not published and was chosen here.
#pragma once

#include <array>
#include <functional>
#include <mutex>
#include <string>

#include "sim/chips/losses.h"
#include "sim/chips/serial_device.h"
#include "sim/computer/computer.h"

namespace sim {

/// Safe to use from any thread; the thread of the serial line calls receive().
class Ch9329 : public HidChip {
  public:
    static constexpr std::size_t kParameterSize = 50;
    using Parameters = std::array<std::uint8_t, kParameterSize>;

    /// A chip that runs at baud, and at storedBaud after its next restart; bits per second.
    Ch9329(Computer &computer, int baud, int storedBaud);

    int baud() override;
    void receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                 Clock::time_point at) override;

    int storedBaud() const;
    Parameters parameters() const;

    /// Power off and on: stored parameters take effect, unless the chip forgets them.
    void powerCycle() override;
    void plug() override;
    void unplug() override;

    // Faults; each lasts until it is switched off.
    void silence(bool on) override;
    void answerLate(Clock::duration delay);                       ///< before every answer
    void splitAnswers(std::size_t bytes, Clock::duration pause);  ///< after so many bytes; 0: whole
    void spoilAnswers(bool on);                                   ///< wrong checksums
    void forgetOnPowerLoss(bool on);  ///< as some boards were seen to do
    /// By chance a frame or an answer does not arrive, or the checksum of a frame is spoiled on its
    /// way to the chip.
    void lose(const Losses &losses);
    /// On: of the frames in one call of receive() only the first is read, because the vendor says
    /// that a packet ends at a gap. Off: frames are told apart by their length.
    void strictPackets(bool on);

    struct Counters {
        unsigned frames = 0;  ///< complete, with the right checksum
        unsigned wrongSums = 0;
        unsigned refused = 0;  ///< unknown command or wrong parameters
        unsigned skipped = 0;  ///< bytes of cut frames and outside of frames
    };
    Counters counters() const;

    /// Calls back with every right frame and the time of its last byte, from the line's thread. The
    /// callback must not call the chip.
    void onFrame(std::function<void(const Bytes &, Clock::time_point)> callback);

  private:
    enum Status : std::uint8_t;

    std::size_t frameSize() const;
    void handleFrame(SerialLine &line, const Bytes &frame, Clock::time_point at);
    Status carryOut(std::uint8_t command, const Bytes &data, Bytes &answer);
    Status setParameters(const Bytes &data);
    Status keyboard(const Bytes &data);
    Status absoluteMouse(const Bytes &data);
    Status relativeMouse(const Bytes &data);
    Status readString(const Bytes &data, Bytes &answer) const;
    Status writeString(const Bytes &data);
    Bytes information() const;
    void reply(SerialLine &line, std::uint8_t code, const Bytes &data);
    void restart(Clock::time_point now);

    mutable std::mutex mutex_;
    Computer &computer_;
    int baud_;
    Parameters parameters_;
    std::array<std::string, 3> strings_{"WCH UART TO KB-MS", "", ""};
    bool plugged_ = true;
    Bytes pending_;
    Clock::time_point lastByte_{}, deafUntil_{};

    bool silent_ = false, spoiled_ = false, forgets_ = false, strict_ = false;
    Clock::duration late_{}, splitPause_{};
    std::size_t splitAfter_ = 0;
    Losses losses_;
    Counters counters_;
    std::function<void(const Bytes &, Clock::time_point)> callback_;
};

}  // namespace sim
