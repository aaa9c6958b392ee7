#include "control.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>

#include "console_ports.h"
#include "control_screen.h"
#include "control_words.h"
#include "guardian.h"
#include "link_control.h"
#include "link_messages.h"
#include "terminal.h"
#include "terminal_input.h"

namespace console {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kRedraw = 33ms, kTick = 500ms;
constexpr std::size_t kLongestLine = 4096;
constexpr auto kConsentTime = 10s;  // how long an endpoint waits for it

volatile std::sig_atomic_t resized = 0;

struct Combination {
    char key;
    const char *combo;
};

// What a terminal, or the desktop around it, keeps to itself.
constexpr Combination kCombinations[] = {
    {'x', "ctrl+alt+delete"},   {'t', "alt+tab"}, {'f', "alt+f4"},
    {'e', "ctrl+shift+escape"}, {'w', "gui"},     {'s', "printscreen"},
    {'1', "capslock"},          {'2', "numlock"}, {'3', "scrolllock"}};

class Control {
  public:
    explicit Control(const ControlOptions &options)
        : options_(options),
          endpoint_(options.endpoint),
          address_(endpoint_.ownAddress()),
          name_(conventionalName(options.user, address_)),
          ports_(address_, ConsolePorts::kSelfOrOther) {
        applying_ = options.apply;
        if (!ports_.own()) news_ = "another program of " + address_ + " answers for it";
    }

    // Every way out lets the keys go.
    ~Control() { endpoint_.finish(); }
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    void run(const volatile std::sig_atomic_t &stop) {
        while (stop == 0 && !leaving_) {
            wait();
            const auto now = Clock::now();
            readTerminal(now);
            ports_.serve([this](const DatagramSocket::Received &datagram) { take(datagram); });
            endpoint_.serve(now);
            feedPaste();
            followHolder();
            forgetOldQuestions(now);
            show(now);
        }
    }

  private:
    struct Question {
        LinkMessage message;
        DatagramSocket::Received from;
        Clock::time_point until;
    };

    // ---- waiting and reading

    void wait() {
        std::vector<pollfd> fds{{STDIN_FILENO, POLLIN, 0}};
        endpoint_.addTo(fds);
        ports_.addTo(fds);
        auto until = std::min(endpoint_.due(), Clock::now() + kTick);
        if (dirty_) until = std::min(until, drawn_ + kRedraw);
        if (input_.pending()) until = std::min(until, lastInput_ + input_.patience());
        const auto left = std::max(until - Clock::now(), Clock::duration::zero());
        const timespec time{std::chrono::duration_cast<std::chrono::seconds>(left).count(),
                            static_cast<long>((left % 1s).count())};
        const int ready = ppoll(fds.data(), fds.size(), &time, nullptr);
        readable_ = ready > 0 && fds[0].revents != 0;
    }

    void readTerminal(Clock::time_point now) {
        if (resized != 0) {
            resized = 0;
            terminal_.resize();
            dirty_ = true;
        }
        std::vector<TerminalEvent> events;
        if (readable_) {
            bool closed = false;
            events = input_.take(terminal_.read(closed));
            lastInput_ = now;
            leaving_ = leaving_ || closed;
        } else if (input_.pending() && now - lastInput_ >= input_.patience()) {
            events = input_.flush();
        }
        for (const TerminalEvent &event : events) take(event);
    }

    void take(const TerminalEvent &event) {
        dirty_ = true;
        switch (event.kind) {
            case TerminalEvent::kMouse:
                if (!menuOpen_ && !prompting()) mouse(event);
                return;
            case TerminalEvent::kPaste:
                if (prompting())
                    line_ +=
                        event.text.substr(0, kLongestLine - std::min(kLongestLine, line_.size()));
                else
                    paste(event.text);
                return;
            case TerminalEvent::kFocus:
                if (!event.on) letGo();
                return;
            case TerminalEvent::kKeyReports:
                keyReports_ = event.on;
                return;
            case TerminalEvent::kUnknown:
                if (!event.text.empty())
                    refused_ = "no key of the layout for \"" + event.text + "\"";
                return;
            default:
                key(event);
        }
    }

    // ---- keys

    static bool down(const TerminalEvent &event) {
        return event.kind == TerminalEvent::kTap || event.kind == TerminalEvent::kPress;
    }

    void key(const TerminalEvent &event) {
        const bool modifier = event.stroke.usage >= kUsageLeftCtrl;
        if (down(event) && event.stroke == options_.escape) {
            letGo();
            escape();
        } else if (menuOpen_ || prompting()) {
            if (event.kind != TerminalEvent::kRelease && !modifier) typeInMenu(event);
        } else if (!paste_.empty()) {
            if (down(event) && !modifier)
                refused_ = "keys wait for the paste; " + options_.escapeName + " stops it";
        } else {
            if (down(event)) refused_ = whyNotTaken();
            forward(event);
        }
    }

    void forward(const TerminalEvent &event) {
        if (event.kind == TerminalEvent::kTap) return tap(event.stroke);
        const bool press = event.kind == TerminalEvent::kPress;
        Stroke state = endpoint_.input().keyboard();
        if (event.stroke.usage >= kUsageLeftCtrl) {
            const auto bit = static_cast<std::uint8_t>(1 << (event.stroke.usage - kUsageLeftCtrl));
            state.modifiers =
                static_cast<std::uint8_t>(press ? state.modifiers | bit : state.modifiers & ~bit);
        } else {
            state.modifiers = reconciled(state.modifiers, event.stroke.modifiers);
            if (press && state.modifiers != endpoint_.input().keyboard().modifiers)
                endpoint_.input().setKeyboard({state.modifiers, 0});
            if (press) state.usage = event.stroke.usage;
            if (press) wantLockKeys(state);
            // Of a repeat nothing is said: the computer repeats what is down.
            if (event.kind == TerminalEvent::kRelease && state.usage == event.stroke.usage)
                state.usage = 0;
        }
        endpoint_.input().setKeyboard(state);
    }

    // The modifiers that are down, of which the terminal knows kinds but not sides.
    static std::uint8_t reconciled(std::uint8_t down, std::uint8_t reported) {
        constexpr unsigned kRightSide = 4;  // bits from a left one to its right one
        unsigned result = 0;
        for (unsigned bit = 1; bit <= kLeftGui; bit <<= 1) {
            const unsigned both = bit | bit << kRightSide;
            if ((reported & bit) != 0) result |= (down & both) != 0 ? down & both : bit;
        }
        return static_cast<std::uint8_t>(result);
    }

    void tap(const Stroke &stroke) {
        constexpr std::size_t kMostWaiting = 2000;  // records
        HealedInput &input = endpoint_.input();
        if (input.waiting() > kMostWaiting) {
            refused_ = "keys come faster than the endpoint takes them";
            return;
        }
        if (stroke.modifiers != 0) input.setKeyboard({stroke.modifiers, 0});
        input.setKeyboard(stroke);
        input.setKeyboard({});
        wantLockKeys(stroke);
    }

    void wantLockKeys(const Stroke &stroke) {
        for (const std::uint8_t usage : {kUsageCapsLock, kUsageNumLock, kUsageScrollLock})
            if (stroke.usage == usage) endpoint_.askLockKeys();
    }

    void letGo() {
        endpoint_.input().releaseAll();
        mouseDown_ = 0;
    }

    // What is down can only be let go as software's record: others are not taken any more.
    void lostControl() {
        const HealedInput &input = endpoint_.input();
        const bool held = !(input.keyboard() == Stroke{}) || !paste_.empty();
        letGo();
        paste_.clear();
        if (held) endpoint_.releaseAsSoftware();
        ring();
    }

    void followHolder() {
        const auto &holder = endpoint_.status().holder;
        const bool mine = holder && holder->linked && holder->user == name_;
        if (mine_ && !mine) lostControl();
        mine_ = mine;
        if (applying_ && holder && endpoint_.status().settings) apply();
    }

    // ---- the mouse

    void mouse(const TerminalEvent &event) {
        const PictureArea area = pictureArea();
        const bool inside = area.holds(event.row, event.column);
        if (event.action == TerminalEvent::kUp) {
            if (event.button == mouseDown_) setButton(0);
            return;
        }
        if (!inside || !endpoint_.status().link) return;
        if (endpoint_.status().link->relative && options_.endpoint.asSoftware) {
            refused_ = "movements cannot be wrapped as software's";
            return;
        }
        if (endpoint_.status().link->relative)
            moveBy(event, area);
        else
            moveTo(event, area);
        if (event.action == TerminalEvent::kDown) setButton(event.button);
        if (event.action == TerminalEvent::kWheel && event.button != 0)
            endpoint_.input().turnWheel(static_cast<std::int8_t>(event.button));
        if (event.action != TerminalEvent::kMove) refused_ = whyNotTaken();
    }

    // As the terminal counts: 1 left, 2 middle, 3 right. Others do not reach the computer.
    void setButton(int button) {
        constexpr Button kButtons[] = {kNoButton, kLeft, kMiddle, kRight};
        if (button > 3) {
            refused_ = "an endpoint knows three buttons";
            return;
        }
        mouseDown_ = button;
        endpoint_.input().setButton(kButtons[button]);
    }

    void moveTo(const TerminalEvent &event, const PictureArea &area) {
        const auto pixel = [](int cell, int cells, int pixels) {
            const double part = (cell + 0.5) / cells;
            return static_cast<std::uint16_t>(
                std::clamp(static_cast<int>(part * pixels), 0, std::max(0, pixels - 1)));
        };
        const Link &link = *endpoint_.status().link;
        const std::uint16_t x = pixel(event.column - area.column, area.columns, link.width);
        const std::uint16_t y = pixel(event.row - area.row, area.rows, link.height);
        if (pointer_ && pointer_->first == x && pointer_->second == y) return;
        pointer_ = {x, y};
        endpoint_.input().moveTo(x, y);
    }

    // A cell is as far as it would be on the picture.
    void moveBy(const TerminalEvent &event, const PictureArea &area) {
        const Link &link = *endpoint_.status().link;
        const auto cell = std::make_pair(event.column, event.row);
        const auto last = lastCell_.value_or(cell);
        lastCell_ = cell;
        pointer_.reset();
        const int dx = (cell.first - last.first) * std::max(1, link.width / area.columns);
        const int dy = (cell.second - last.second) * std::max(1, link.height / area.rows);
        if (dx != 0 || dy != 0) endpoint_.input().moveByDistance(dx, dy);
    }

    // ---- pasted text

    void paste(const std::string &text) {
        std::vector<Stroke> states;
        std::string error;
        if (!paste_.empty()) {
            refused_ = "a paste is still being typed";
            return;
        }
        if (!typeStrokes(text, states, error)) {
            refused_ = error;
            return;
        }
        paste_.assign(states.begin(), states.end());
        pasteTotal_ = paste_.size();
        refused_ = whyNotTaken();
    }

    void feedPaste() {
        if (paste_.empty() || !endpoint_.input().idle()) return;
        if (!endpoint_.status().reachable || endpoint_.testsUsb()) return;  // it waits for that
        constexpr int kTimesBefore = 2;  // more would make a long text crawl
        endpoint_.input().setKeyboard(paste_.front(), kTimesBefore);
        paste_.pop_front();
        news_ = paste_.empty()
                    ? "pasted"
                    : "pasting, " + std::to_string(100 - 100 * paste_.size() / pasteTotal_) +
                          " %; " + options_.escapeName + " stops it";
        dirty_ = true;
    }

    // ---- the menu

    bool prompting() const { return prompt_ != kNoPrompt; }

    void escape() {
        if (!paste_.empty()) {
            news_ = "the paste was stopped";
            paste_.clear();
            return;
        }
        if (prompting()) {
            prompt_ = kNoPrompt;
            line_.clear();
            return;
        }
        menuOpen_ = !menuOpen_;
        // y and n are for who is named in the menu, whatever comes meanwhile.
        offered_ = questions_.empty() ? std::nullopt : std::make_optional(questions_.front());
    }

    std::vector<std::string> menuLines() const {
        const bool relative = endpoint_.status().link && endpoint_.status().link->relative;
        std::vector<std::string> lines;
        if (offered_) {
            const std::string user = printable(offered_->message.user);
            const std::string of = " of " + printable(offered_->message.endpoint);
            lines = {"y  give control" + of + " to " + user, "n  refuse it to " + user};
        }
        lines.insert(lines.end(),
                     {"a  apply for control", "d  disconnect, give control up",
                      std::string("m  mouse: send ") + (relative ? "positions" : "movements")});
        for (const Combination &combination : kCombinations)
            lines.push_back(std::string(1, combination.key) + "  " + combination.combo);
        lines.insert(lines.end(),
                     {"k  other keys, by name", "p  paste a text",
                      "u  is a computer on the USB cable?", "]  " + options_.escapeName + " itself",
                      "q  quit", "   " + options_.escapeName + " closes this"});
        return lines;
    }

    void typeInMenu(const TerminalEvent &event) {
        // The person's layout counts here, not the computer's.
        const char character = event.character;
        if (prompting()) return typeInPrompt(event.stroke, character);
        menuOpen_ = false;
        for (const Combination &combination : kCombinations)
            if (character == combination.key) return sendCombo(combination.combo);
        carryOut(character);
    }

    void carryOut(char choice) {
        const auto now = Clock::now();
        const bool relative = endpoint_.status().link && endpoint_.status().link->relative;
        switch (choice) {
            case 'a':
                return apply();
            case 'd':
                return disconnect(now);
            case 'm':
                lastCell_.reset();
                return endpoint_.command(relative ? "chip=abs" : "chip=rel", now);
            case 'k':
                prompt_ = kKeysPrompt;
                return;
            case 'p':
                prompt_ = kTextPrompt;
                return;
            case 'u':
                news_ = "asking the chip for the computer";
                usbAsked_ = true;
                return endpoint_.testUsb();
            case ']':
                return tap(options_.escape);
            case 'q':
                leaving_ = true;
                return;
            case 'y':
            case 'n':
                return consent(choice == 'y');
            default:
                return;
        }
    }

    void typeInPrompt(const Stroke &stroke, char character) {
        constexpr std::uint8_t kUsageEscape = 0x29, kUsageKeypadEnter = 0x58;
        if (stroke.usage == kUsageBackspace) {
            if (!line_.empty()) line_.pop_back();
        } else if (stroke.usage == kUsageEscape) {
            escape();
        } else if (stroke.usage == kUsageEnter || stroke.usage == kUsageKeypadEnter) {
            const Prompt asked = prompt_;
            const std::string text = std::move(line_);
            prompt_ = kNoPrompt;
            line_.clear();
            if (asked == kTextPrompt) return paste(text);
            sendCombo(text);
        } else if (character != '\0' && line_.size() < kLongestLine) {
            line_ += character;
        }
    }

    void sendCombo(const std::string &text) {
        std::string error;
        const auto stroke = parseCombo(text, error);
        if (!stroke) {
            refused_ = error;
            return;
        }
        news_ = "sent " + strokeWords(*stroke);
        refused_ = whyNotTaken();
        tap(*stroke);
    }

    // ---- who controls it

    std::string whyNotTaken() const {
        return options_.endpoint.asSoftware ? ""
                                            : console::whyNotTaken(endpoint_.status(), address_);
    }

    void apply() {
        applying_ = false;
        const LinkRequest wanted{name_, address_, options_.level};
        const EndpointStatus &status = endpoint_.status();
        refused_ = objection(wanted);
        if (status.settings && !permissionsOn(*status.settings))
            refused_ = "permissions are off: there is no control to apply for";
        if (!refused_.empty()) return;
        // Of who has control, "apply" would link the same output again.
        if (mine_ && status.settings && maySend(*status.settings, address_) == MaySend::kYes) {
            news_ = "you have control already";
            return;
        }
        news_ = "applying for control; who has it may take 10 s to answer";
        endpoint_.command(requestText(mine_ ? "connect" : "apply", wanted), Clock::now());
    }

    // An endpoint takes the beginning of a name for the whole.
    void disconnect(Clock::time_point now) {
        if (!mine_) {
            refused_ = "you have no control to give up";
            return;
        }
        news_ = "giving control up";
        endpoint_.command(disconnectText({name_, address_, options_.level}), now);
    }

    void take(const DatagramSocket::Received &datagram) {
        const auto message = parseLinkMessage(datagram.text);
        if (!message) return;
        dirty_ = true;
        const bool ours = message->endpoint == options_.endpoint.to;
        const std::string words =
            (ours ? "" : printable(message->endpoint) + ": ") + inWords(*message);
        if (message->kind == LinkMessage::kReply && message->code != LinkMessage::kGranted)
            refused_ = printable(words);
        else
            news_ = printable(words);
        if (ours && message->kind != LinkMessage::kAsked) endpoint_.askWhoControls(Clock::now());
        const bool gone = message->kind == LinkMessage::kDropped
                              ? message->user == name_
                              : message->kind == LinkMessage::kHeld && message->user != name_;
        if (ours && gone && mine_) {
            mine_ = false;
            lostControl();
        }
        constexpr std::size_t kMostQuestions = 16;
        if (message->kind != LinkMessage::kAsked || !ports_.own() ||
            questions_.size() == kMostQuestions)
            return;
        questions_.push_back({*message, datagram, Clock::now() + kConsentTime});
        ring();
    }

    void consent(bool granted) {
        if (!offered_) return;
        const auto found = std::find_if(
            questions_.begin(), questions_.end(),
            [this](const Question &question) { return question.until == offered_->until; });
        if (found == questions_.end()) {
            refused_ = "too late";
            return;
        }
        std::string why;
        if (ports_.answer(found->from, consentAnswer(address_, found->message, granted), why))
            news_ = (granted ? "gave control to " : "refused ") + printable(found->message.user);
        else
            refused_ = why;
        questions_.erase(found);
    }

    void forgetOldQuestions(Clock::time_point now) {
        while (!questions_.empty() && now > questions_.front().until) {
            news_ = "too late: " + printable(questions_.front().message.user) + " got no answer";
            questions_.pop_front();
        }
    }

    // ---- what is seen

    void show(Clock::time_point now) {
        const EndpointStatus &status = endpoint_.status();
        if (usbAsked_ && !endpoint_.testsUsb()) {
            usbAsked_ = false;
            news_ = !status.usb   ? "the USB-link test was not answered"
                    : *status.usb ? "a computer is on the USB cable"
                                  : "no computer on the USB cable";
        }
        const std::string who = whoWords(status, name_);
        const std::string devices = deviceWords(status, endpoint_.input());
        if (who != view_.who || devices != view_.devices || now - drawn_ >= kTick) dirty_ = true;
        if (!dirty_ || now - drawn_ < kRedraw) return;
        dirty_ = false;
        drawn_ = now;
        view_.title = " quillon  " + options_.endpoint.to + "   " + options_.escapeName + " menu" +
                      (keyReports_ ? "   keys are held as long as you hold them" : "");
        view_.lost = !status.reachable;
        view_.inThePicture = status.link && status.link->relative
                                 ? "the mouse here moves the computer's pointer"
                                 : "the mouse here places the computer's pointer";
        view_.who = who;
        view_.devices = devices;
        const bool linked = status.holder && status.holder->linked;
        view_.standing = !linked                        ? ControlView::kPlain
                         : status.holder->user == name_ ? ControlView::kMine
                                                        : ControlView::kForeign;
        showPointer(status);
        view_.news = news_;
        if (!questions_.empty())
            view_.news = printable(questions_.front().message.user) + " asks for control of " +
                         printable(questions_.front().message.endpoint) + ": " +
                         options_.escapeName + " y gives it, n refuses";
        view_.refused = refused_.empty() ? "" : "refused: " + printable(refused_);
        view_.menu = menuOpen_ ? menuLines() : std::vector<std::string>{};
        constexpr const char *kPrompts[] = {"", "keys, e.g. ctrl+alt+f2:", "text:"};
        view_.prompt = kPrompts[prompt_];
        view_.input = printable(line_);
        draw(view_);
    }

    void showPointer(const EndpointStatus &status) {
        view_.pointerX.reset();
        view_.pointerY.reset();
        if (!pointer_ || !status.link || status.link->width <= 0 || status.link->height <= 0)
            return;
        view_.pointerX = (pointer_->first + 0.5) / status.link->width;
        view_.pointerY = (pointer_->second + 0.5) / status.link->height;
    }

    const ControlOptions &options_;
    ControlledEndpoint endpoint_;
    const std::string address_, name_;
    ConsolePorts ports_;
    Terminal terminal_{Terminal::kAll};
    TerminalInput input_;

    bool leaving_ = false, readable_ = false, dirty_ = true, keyReports_ = false;
    bool menuOpen_ = false, usbAsked_ = false;
    bool applying_ = false;  ///< as soon as it is known who has control
    bool mine_ = false;      ///< control
    enum Prompt { kNoPrompt, kKeysPrompt, kTextPrompt } prompt_ = kNoPrompt;
    std::string line_;  ///< what was typed at the prompt
    Clock::time_point lastInput_{}, drawn_{};
    std::deque<Stroke> paste_;  ///< states that are still to come
    std::size_t pasteTotal_ = 0;
    int mouseDown_ = 0;  ///< as the terminal counts
    std::optional<std::pair<int, int>> pointer_, lastCell_;
    std::deque<Question> questions_;
    std::optional<Question> offered_;  ///< in the menu
    std::string news_, refused_;
    ControlView view_;
};

void catchSignals() {
    struct sigaction resize {};
    resize.sa_handler = [](int) { resized = 1; };
    sigaction(SIGWINCH, &resize, nullptr);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGTSTP, SIG_IGN);  // stopped, it could neither answer nor let keys go
}

}  // namespace

void control(const ControlOptions &options, const volatile std::sig_atomic_t &stop) {
    // What is left to do when control itself was killed.
    // The keys first: a terminal may take its time.
    const Guardian guardian([&options, restore = Terminal::restorer()] {
        ControlledEndpoint(options.endpoint).finish();
        restore();
    });
    Control running(options);
    catchSignals();
    running.run(stop);
}

}  // namespace console
