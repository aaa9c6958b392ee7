// The keys of a viewer as keys of the computer.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "layouts/typing.h"
#include <quillon/healed_input.h>

namespace gateway {

/// A key as a viewer names it: by its position, or by what it means for the person.
struct ViewerKey {
    enum Kind { kScanCode, kKeysym } kind;
    std::uint32_t number;
};
inline bool operator==(const ViewerKey &a, const ViewerKey &b) {
    return a.kind == b.kind && a.number == b.number;
}

/// Of several keys that are down, the newest is the one that the computer has, because a record
/// holds one; an older one does not come back when the newest goes up, for that would type it once
/// more. A viewer's repeats are ignored: the computer repeats a key that is down.
class ViewerKeys {
  public:
    /// The typist for the computer's layout with its lock keys as they are now.
    using TypistNow = std::function<const quillon::Typist &()>;

    /// Both must outlive this.
    ViewerKeys(quillon::HealedInput &input, TypistNow typist)
        : input_(input), typist_(std::move(typist)) {}

    /// A key went down. Returns why the computer cannot have it, for a person; empty when it can.
    std::string press(const ViewerKey &key);
    void release(const ViewerKey &key);
    /// A key went down that does not count before its release.
    void ignore(const ViewerKey &key);
    /// A lock key went out since the last call, its HID usage; 0 for none.
    std::uint8_t takeLockKey();

    /// Something that counts is down.
    bool holding() const;
    /// Lets everything go. What is down counts again only after its release.
    void letGo();

  private:
    struct Down {
        ViewerKey key;
        std::uint8_t usage;  ///< 0: typed with several strokes, so that nothing of it is down
        bool counts;         ///< false after letGo()
        std::uint8_t modifiers() const;
    };

    std::string pressUsage(const ViewerKey &key, std::uint8_t usage);
    std::string pressCharacter(const ViewerKey &key, char32_t character);
    std::uint8_t held() const;
    void send(const quillon::Stroke &stroke);
    std::vector<Down>::iterator find(const ViewerKey &key);

    quillon::HealedInput &input_;
    const TypistNow typist_;
    std::vector<Down> down_;
    std::optional<ViewerKey> newest_;  ///< the key that the computer has
    std::uint8_t lockKey_ = 0;
};

}  // namespace gateway
