#include "console/sender.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "console/interrupt.h"
#include "protocol/requests.h"

namespace quillon {

Sender::Sender(const Options &options)
    : session_(openSession(options)),
      tag_(options.asSoftware ? kSoftwareTag : ""),
      interval_(options.intervalMs),
      patience_(options.timeoutMs),
      repeat_(options.repeat) {
    if (!options.asSoftware) askPermission();
}

void Sender::send(const std::vector<Datagram> &records, const char *progress) {
    catchSignals();  // before, there is nothing to let go
    for (std::size_t i = 0; i < records.size() && interrupted == 0; ++i) {
        // Noted before it leaves: it may have left when an error says that it has not.
        release_[records[i].size()] = released(records[i]);
        for (unsigned n = 0; n < repeat_; ++n) {
            sendOne(records[i]);
            pause(interval_);
        }
        if (progress != nullptr && i % 16 == 0)
            fprintf(stderr, "\r%s %zu %%", progress, 100 * i / records.size());
    }
    if (progress != nullptr) fprintf(stderr, "\r%s 100 %%\n", progress);
}

// An endpoint drops what it does not take without an answer; this says so before.
void Sender::askPermission() {
    switch (maySend(session_.settings(), session_.ownAddress())) {
        case MaySend::kYes:
            return;
        case MaySend::kByChance:
            fprintf(stderr,
                    "quillon-console: permissions are on and no console is linked, so the "
                    "endpoint may drop this\n");
            return;
        case MaySend::kNo:
            throw std::runtime_error(session_.ownAddress() +
                                     " may not send: permissions are on, and another user's "
                                     "outputs are linked (see \"query\", --as-software)");
    }
}

void Sender::sendOne(const Datagram &record) {
    const std::string bytes = tag_ + std::string(record.begin(), record.end());
    session_.data().send(bytes.data(), bytes.size());
}

bool Sender::trySend(const Datagram &record) {
    try {
        sendOne(record);
        return true;
    } catch (const std::runtime_error &) {
        return false;
    }
}

// Tries again for a while when nobody listens, because the endpoint may be starting again. A
// person who asks a second time for the end does not wait for that.
void Sender::letGo() {
    constexpr int kTimes = 3;
    constexpr Milliseconds kBetween(8);
    const auto end = Clock::now() + patience_;
    for (int times = 0; !release_.empty() && times < kTimes;) {
        bool left = true;
        for (const auto &[size, record] : release_) left = trySend(record) && left;
        times = left ? times + 1 : 0;
        if (!left && (Clock::now() >= end || interrupted > 1)) return;
        std::this_thread::sleep_for(kBetween);
    }
}

// Until the next record is due; a person who ends the program waits no longer than a slice.
void Sender::pause(Milliseconds time) {
    constexpr Milliseconds kSlice(20);
    due_ = std::max(due_ + time, Clock::now());
    for (auto now = Clock::now(); now < due_; now = Clock::now()) {
        std::this_thread::sleep_until(std::min(due_, now + kSlice));
        if (interrupted != 0) due_ = now;
    }
}

}  // namespace quillon
