#include "console/control/consent.h"

namespace quillon {

bool Consent::add(const LinkMessage &message, const DatagramSocket::Received &from, Time now) {
    return questions_.add(message, from, now) != nullptr;
}

std::optional<std::string> Consent::takeLate(Time now) {
    const auto late = questions_.takeLate(now);
    return late ? std::make_optional(late->message.user) : std::nullopt;
}

void Consent::offer() {
    offered_ = questions_.empty() ? std::nullopt : std::make_optional(questions_.front());
}

std::optional<Menu::Asking> Consent::offered() const {
    if (!offered_) return std::nullopt;
    return Menu::Asking{offered_->message.user,
                        endpointWords(offered_->from.sender, offered_->message)};
}

std::string Consent::answer(bool granted, ConsolePorts &ports, Time now, std::string &refused) {
    if (!offered_) return "";
    if (offered_->number != shown_ || now < certainFrom_) {
        refused = "the question has just changed; answer again";
        return "";
    }
    if (!questions_.remove(offered_->number)) {
        refused = "the question is not open any more";
        return "";
    }
    const std::string text = consentAnswer(ownAddress_, offered_->message, granted);
    if (!ports.answer(offered_->from, text, refused)) return "";
    return (granted ? "control was given to " : "control was refused to ") + offered_->message.user;
}

std::string Consent::shown(const std::string &escapeName, Time now) {
    constexpr std::chrono::seconds kQuiet(10);
    constexpr std::chrono::seconds kReaction(1);  // of a person to a new line
    const unsigned number = questions_.empty() ? 0 : questions_.front().number;
    if (number != shown_) {
        if (shown_ != 0) replaced_ = now;
        shown_ = number;
        certainFrom_ = now - replaced_ < kQuiet ? now + kReaction : now;
    }
    if (questions_.empty()) return "";
    const Question &first = questions_.front();
    const std::size_t more = questions_.size() - 1 + questions_.surplus();
    return first.message.user + " asks for control of " +
           endpointWords(first.from.sender, first.message) +
           (more == 0 ? "" : " (and " + std::to_string(more) + " more)") + ": " + escapeName +
           " y gives it, n refuses";
}

}  // namespace quillon
