#include "gateway/desk.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <new>

namespace gateway {
namespace {

using namespace std::chrono_literals;
using quillon::ControlledEndpoint;

// Least time between two drawings; how often the words are looked at; and the measured time.
constexpr std::chrono::milliseconds kRedraw(33), kTick(500), kMeasure(2000);
// A picture for an endpoint that has not said how large its own is.
constexpr unsigned kWidth = 1024, kHeight = 768;

// How long news and hints lie over a picture.
constexpr std::chrono::seconds kNews(6);

std::string clockTime() {
    char text[32] = "";
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    if (localtime_r(&now, &parts) != nullptr)
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

std::string onOff(bool on) {
    return on ? "on" : "off";
}

std::string lockWords(const LockState &locks) {
    if (!locks.certain()) return "Lock keys: not known.";
    return "Lock keys: Caps Lock is " + onOff(locks.certain()->caps) + ", Num Lock is " +
           onOff(locks.certain()->num) + ".";
}

}  // namespace

const quillon::Typist &Typists::typist(const quillon::LayoutChoice &choice,
                                       const quillon::LockKeys &locks) {
    const std::string name = choice.layout + "," + choice.variant + "," +
                             std::to_string(static_cast<int>(choice.system)) +
                             (locks.caps ? "c" : "") + (locks.num ? "n" : "");
    auto made = made_.find(name);
    if (made == made_.end()) made = made_.emplace(name, quillon::Typist(choice, locks)).first;
    return made->second;
}

Desk::Desk(Setup setup, Typists &typists, volatile Leftover &leftover,
           std::function<void()> changed)
    : setup_(std::move(setup)),
      typists_(typists),
      leftover_(leftover),
      changed_(std::move(changed)),
      picture_([this] {
          tell();
          changed_();
      }) {}

Desk::~Desk() = default;

void Desk::join(Sitter &sitter) {
    if (!endpoint_) {
        // A question for the lock keys stops records, so it is asked when there is a reason.
        auto controlled = setup_.endpoint;
        controlled.watchesLocks = false;
        endpoint_ = std::make_unique<ControlledEndpoint>(controlled);
        ++socketsVersion_;
        ownAddress_ = endpoint_->ownAddress();
        keeper_.emplace(setup_.taking,
                        quillon::LinkRequest{quillon::conventionalName(setup_.user, ownAddress_),
                                             ownAddress_, setup_.level});
        locks_ = {};
        mine_ = reachable_ = sized_ = false;
    }
    if (!picture_.isOpen()) {
        picture_.open(kWidth, kHeight);
        lost_.clear();
        followSize();
    }
    hint_.clear();  // so that this one sees it, too
    if (sitters_.empty()) keeper_->want();
    sitters_.push_back(&sitter);
    endpoint_->askLockKeys();
    dirty_ = true;
    changed_();
}

void Desk::leave(Sitter &sitter) {
    const bool had = hasInput(sitter);
    sitters_.erase(std::remove(sitters_.begin(), sitters_.end(), &sitter), sitters_.end());
    if (had) {
        // Another console may have keys down there, which are none of ours.
        if (!endpoint_->atRest()) input().releaseAll();
        endpoint_->serve(std::chrono::steady_clock::now());
        if (!sitters_.empty()) note("The viewer with the input left; the next one has it.");
    }
    if (sitters_.empty()) {
        // What nobody sees takes no memory.
        picture_.close();
        refused_.clear();
        pointer_.reset();
    }
    dirty_ = true;
    changed_();
}

const quillon::Typist &Desk::typist() {
    return typists_.typist(setup_.layout, locks_.expected());
}

void Desk::send(Time now) {
    worked_ = now;
    noteLeftover();
    endpoint_->serve(now);
    changed_();
}

void Desk::lockKeySent(std::uint8_t usage, Time now) {
    locks_.pressed(usage, now);
    endpoint_->askLockKeys();
    dirty_ = true;
    tell();
}

void Desk::point(const std::optional<std::pair<unsigned, unsigned>> &at) {
    if (pointer_ == at) return;
    pointer_ = at;
    dirty_ = true;
}

void Desk::note(const std::string &what) {
    news_ = what;
    told_ = std::chrono::steady_clock::now();
    dirty_ = true;
    changed_();
}

void Desk::refuse(const std::string &why) {
    if (refused_ == why) return;
    refused_ = why;
    dirty_ = true;
    changed_();
}

void Desk::addTo(std::vector<pollfd> &fds) const {
    if (endpoint_) endpoint_->addTo(fds);
}

Desk::Time Desk::due() const {
    if (!endpoint_) return Time::max();
    if (sitters_.empty()) return endpoint_->due();
    return std::min(endpoint_->due(), drawn_ + (dirty_ ? kRedraw : kTick));
}

void Desk::tell() {
    for (Sitter *sitter : sitters_) sitter->changed();
}

void Desk::letGo() {
    if (!endpoint_) return;
    for (Sitter *sitter : sitters_) sitter->letGo();
    if (!endpoint_->atRest()) input().releaseAll();
}

void Desk::serve(Time now) {
    if (!endpoint_) return;
    endpoint_->serve(now);
    if (sitters_.empty()) {
        if (endpoint_->atRest()) {
            endpoint_.reset();
            ++socketsVersion_;
        }
        return noteLeftover();
    }
    followSize();
    followReach(now);
    followLocks();
    followHolder(now);
    endpoint_->serve(now);
    noteLeftover();
    draw(now);
}

void Desk::followSize() {
    const auto &link = status().link;
    const bool relative = link && link->relative;
    if (relative != relative_) {
        relative_ = relative;
        point(std::nullopt);
        tell();
    }
    if (sized_ != link.has_value()) {
        sized_ = link.has_value();
        tell();
    }
    if (picture_.state() != Picture::kWords || !link || link->width <= 0 || link->height <= 0)
        return;
    const unsigned before = picture_.surfaceNumber();
    try {
        picture_.open(static_cast<unsigned>(link->width), static_cast<unsigned>(link->height));
    } catch (const std::bad_alloc &) {
        return refuse("There is no memory for a picture of that size.");
    }
    if (picture_.surfaceNumber() == before) return;
    pointer_.reset();
    dirty_ = true;
}

bool Desk::sizeKnown() const {
    if (picture_.state() != Picture::kWords) return true;
    return sized_ && (setup_.source.empty() || !lost_.empty());
}

void Desk::pictureLost(const std::string &why) {
    if (lost_.empty() || picture_.state() == Picture::kLive) lostAt_ = clockTime();
    if (lost_ != why) dirty_ = true;
    lost_ = why;
    picture_.lose();
    if (picture_.state() == Picture::kWords) tell();
    changed_();
}

std::shared_ptr<const rfb::Jpeg> Desk::toDecode() {
    const bool wanted = std::any_of(sitters_.begin(), sitters_.end(),
                                    [](const Sitter *sitter) { return sitter->wantsPixels(); });
    return picture_.toDecode(wanted);
}

void Desk::followReach(Time now) {
    const auto &status = endpoint_->status();
    if (reachable_ != status.reachable) {
        reachable_ = status.reachable;
        locks_.forget();
        if (!reachable_) keeper_->doubt(now);
        dirty_ = true;
        // Over a picture stands trouble() as long as it does not answer, and then nothing.
        news_ = reachable_ ? "The endpoint answers." : "The endpoint does not answer any more.";
        changed_();
    }
}

void Desk::followLocks() {
    const auto &status = endpoint_->status();
    if (!status.locks) return;
    const bool before = locks_.certain().has_value();
    if (locks_.answered(*status.locks, status.locksAsked)) endpoint_->askLockKeys();
    if (before == locks_.certain().has_value()) return;
    dirty_ = true;
    tell();
}

// What is down can only be let go as software's record, because an endpoint takes no others from a
// console that lost control.
void Desk::followHolder(Time now) {
    const bool mine = keeper_->holds(status());
    if (mine_ && !mine) {
        const bool held = !input().keysAtRest() || input().button() != quillon::kNoButton;
        letGo();
        if (held) endpoint_->releaseAsSoftware();
        took_ = false;
        note("Control was lost.");
    }
    if (mine != mine_) dirty_ = true;
    mine_ = mine;
    if (const auto command = keeper_->next(status(), now)) {
        const bool asks = *command == quillon::applyRequest(keeper_->request());
        took_ = true;
        note(asks ? "Asking for control; the holder has 10 s to answer." : "Taking control.");
        endpoint_->command(*command, now);
    }
}

void Desk::take(const quillon::LinkMessage &message,
                const quillon::DatagramSocket::Received &datagram, quillon::ConsolePorts &ports) {
    const auto now = std::chrono::steady_clock::now();
    if (message.kind == quillon::LinkMessage::kAsked && sitters_.empty()) {
        // Nobody here needs the control that was taken from here. A console of the same user and
        // address may hold what was not.
        std::string why;  // the endpoint asks for 10 s
        if (took_)
            ports.answer(datagram, quillon::consentAnswer(ports.address(), message, true), why);
        return;
    }
    if (!endpoint_) {
        took_ =
            took_ && message.kind == quillon::LinkMessage::kHeld && message.user == keeper_->user();
        return;
    }
    note(quillon::inWords(message));
    if (message.kind != quillon::LinkMessage::kAsked) endpoint_->askWhoControls(now);
}

std::string Desk::pictureWords(const std::optional<quillon::Link> &link) const {
    if (!setup_.source.empty())
        return lost_.empty()
                   ? "Picture: from " + setup_.source + "; it has not come yet."
                   : "Picture: none since " + lostAt_ + ": " + lost_ + ". It is tried again.";
    if (!link) return "Picture: not known.";
    if (link->width <= 0 || link->height <= 0)
        return "Picture: the endpoint has none, so the pointer has no place.";
    return "Picture: " + std::to_string(link->width) + "x" + std::to_string(link->height) +
           ", but no picture source.";
}

// What a person should know of a picture that seems to be in order.
std::string Desk::hint() const {
    const auto &link = status().link;
    if (!link) return "";
    if (link->relative)
        return "The mouse takes movements. A viewer that sends only positions cannot move it.";
    const auto size = [](auto width, auto height) {
        return std::to_string(width) + "x" + std::to_string(height);
    };
    const std::string here = size(picture_.surface().width(), picture_.surface().height());
    const std::string there = size(link->width, link->height);
    if (link->width <= 0 || link->height <= 0)
        return "The endpoint knows no size of its picture, so the pointer has no place.";
    if (here == there) return "";
    return "The picture is " + here + ", but the endpoint's is " + there + ": places are scaled.";
}

std::string Desk::trouble() const {
    return !refused_.empty() ? "Refused: " + refused_ : quillon::whyNotTaken(status(), ownAddress_);
}

// The lines over the picture of a source.
std::vector<std::string> Desk::cover(Time now) {
    std::vector<std::string> lines;
    if (picture_.state() == Picture::kLost && !lost_.empty())
        lines.push_back("No picture since " + lostAt_ + ": " + lost_ + ". It is tried again.");
    if (const std::string why = trouble(); !why.empty()) lines.push_back(why);
    if (const std::string newest = hint(); newest != hint_) {
        hint_ = newest;
        hinted_ = now;
    }
    if (!hint_.empty() && now - hinted_ < kNews) lines.push_back(hint_);
    if (!news_.empty() && now - told_ < kNews) lines.push_back(news_);
    return lines;
}

StatusLines Desk::words(Time now) {
    const quillon::EndpointStatus &status = endpoint_->status();
    if (now - measured_ >= kMeasure) {
        measured_ = now;
        char text[32];
        snprintf(text, sizeof text, "%.1f ms",
                 std::chrono::duration<double, std::milli>(status.roundTrip).count());
        answers_ = text;
    }
    StatusLines words;
    words.title = setup_.name;
    words.lines.push_back("Endpoint " + setup_.endpoint.to + ": " +
                          (status.reachable ? "answers in " + answers_ : "does not answer") + ".");
    const bool open = status.settings && !quillon::permissionsOn(*status.settings);
    words.lines.push_back("Control: " +
                          (open ? "permissions are off, everybody may type."
                                : whoWords(status.holder, status.settings, keeper_->user()) + "."));
    words.lines.push_back(pictureWords(status.link));
    words.lines.push_back(!status.link ? "Mouse: not known."
                          : status.link->relative
                              ? "Mouse: movements. A viewer that sends only positions cannot move "
                                "it; \"quillon-console mouse-mode abs\" changes that."
                              : "Mouse: positions.");
    words.lines.push_back(lockWords(locks_));
    const std::size_t others = sitters_.size() - 1;
    words.lines.push_back("Input: from " + sitters_.front()->from() +
                          (others == 0   ? "."
                           : others == 1 ? "; one other viewer watches."
                                         : "; " + std::to_string(others) + " others watch."));
    words.lines.push_back(news_.empty() ? "" : "Last: " + news_);
    words.trouble = trouble();
    return words;
}

void Desk::draw(Time now) {
    if (now - drawn_ < (dirty_ ? kRedraw : kTick)) return;
    dirty_ = false;
    drawn_ = now;
    if (picture_.state() == Picture::kLive) lost_.clear();
    if (picture_.state() == Picture::kWords)
        picture_.draw(words(now), pointer_);
    else
        picture_.cover(cover(now));
}

// Before something is sent, so that it is never down without being known.
void Desk::noteLeftover() {
    leftover_.restless = !atRest();
    if (!leftover_.restless) return;
    const quillon::HealedInput &input = endpoint_->input();
    leftover_.relative = input.relative();
    leftover_.placed = input.position().has_value();
    if (!leftover_.placed) return;
    leftover_.x = input.position()->first;
    leftover_.y = input.position()->second;
}

void Desk::finish() {
    letGo();
    if (endpoint_) endpoint_->finish();
}

}  // namespace gateway
