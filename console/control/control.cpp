#include "console/control/control.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "console/control/forwarder.h"
#include "console/control/guardian.h"
#include "console/control/view.h"
#include "console/control/words.h"
#include "protocol/link_messages.h"
#include "terminal/terminal.h"
#include "terminal/terminal_input.h"
#include <quillon/console_ports.h>
#include <quillon/link_control.h>
#include <quillon/questions.h>

namespace quillon {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kRedraw = 33ms, kTick = 500ms;
constexpr std::chrono::seconds kReaction(1);  // of a person to a new line
constexpr std::size_t kLongestLine = 4096;

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
          ports_(address_, ConsolePorts::kSelfOrOther),
          questions_(options.endpoint.to),
          forwarder_(endpoint_, options.endpoint.asSoftware) {
        applying_ = options.apply;
        news_ = ports_.trouble();
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
            // Before new ones: the same user may be asked for again.
            while (const auto late = questions_.takeLate(now))
                news_ = "too late: " + late->message.user + " got no answer";
            ports_.serve([this](const DatagramSocket::Received &datagram) { take(datagram); });
            endpoint_.serve(now);
            feedPaste();
            followHolder();
            show(now);
        }
    }

  private:
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
                if (!event.on) forwarder_.letGo();
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
            forwarder_.letGo();
            escape();
        } else if (menuOpen_ || prompting()) {
            if (event.kind != TerminalEvent::kRelease && !modifier) typeInMenu(event);
        } else if (forwarder_.pasting()) {
            if (down(event) && !modifier)
                refused_ = "keys wait for the paste; " + options_.escapeName + " stops it";
        } else {
            const std::string why = forwarder_.key(event);
            if (down(event)) complain(why);
        }
    }

    void mouse(const TerminalEvent &event) {
        const std::string why = forwarder_.mouse(event, pictureArea());
        if (event.action != TerminalEvent::kMove || !why.empty()) complain(why);
    }

    // Why something could not be done, or else why the endpoint will not take it.
    void complain(const std::string &why) {
        refused_ = !why.empty() || options_.endpoint.asSoftware
                       ? why
                       : whyNotTaken(endpoint_.status(), address_);
    }

    // What is down can only be let go as software's record: others are not taken any more.
    void lostControl() {
        // Also what was let go just now: the endpoint may not have taken that any more.
        const HealedInput &input = endpoint_.input();
        const bool held =
            !input.keysAtRest() || input.button() != kNoButton || forwarder_.pasting();
        forwarder_.letGo();
        forwarder_.stopPaste();
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

    // ---- pasted text

    void paste(const std::string &text) { complain(forwarder_.paste(text)); }

    void feedPaste() {
        if (!forwarder_.feedPaste()) return;
        dirty_ = true;
        news_ = !forwarder_.pasting() ? "pasted"
                                      : "pasting, " + std::to_string(forwarder_.pastedPercent()) +
                                            " %; " + options_.escapeName + " stops it";
    }

    // ---- the menu

    bool prompting() const { return prompt_ != kNoPrompt; }

    void escape() {
        if (forwarder_.pasting()) {
            news_ = "the paste was stopped";
            forwarder_.stopPaste();
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
            const std::string &user = offered_->message.user;
            const std::string of = " of " + endpointWords(offered_->from.sender, offered_->message);
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
                forwarder_.forgetPointer();
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
                return complain(forwarder_.tap(options_.escape));
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
        complain(forwarder_.tap(*stroke));
    }

    // ---- who controls it

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
        // What an endpoint calls itself is no proof of who it is.
        const bool ours = datagram.sender == options_.endpoint.to;
        const bool refusal =
            message->kind == LinkMessage::kReply && message->code != LinkMessage::kGranted;
        (refusal ? refused_ : news_) = (ours && message->endpoint == datagram.sender
                                            ? ""
                                            : endpointWords(datagram.sender, *message) + ": ") +
                                       inWords(*message);
        if (ours && message->kind != LinkMessage::kAsked) endpoint_.askWhoControls(Clock::now());
        const bool gone = message->kind == LinkMessage::kDropped
                              ? message->user == name_
                              : message->kind == LinkMessage::kHeld && message->user != name_;
        if (ours && gone && mine_) {
            mine_ = false;
            lostControl();
        }
        if (message->kind != LinkMessage::kAsked || !ports_.own()) return;
        if (questions_.add(*message, datagram, Clock::now()) != nullptr) ring();
    }

    // What the person has seen for a while. A question that comes in the place of another must not
    // get the answer to that.
    void noteShown(Clock::time_point now) {
        constexpr std::chrono::seconds kQuiet(10);
        const unsigned number = questions_.empty() ? 0 : questions_.front().number;
        if (number == shown_) return;
        if (shown_ != 0) replaced_ = now;
        shown_ = number;
        certainFrom_ = now - replaced_ < kQuiet ? now + kReaction : now;
    }

    void consent(bool granted) {
        if (!offered_) return;
        if (offered_->number != shown_ || Clock::now() < certainFrom_) {
            refused_ = "the question has just changed; answer again";
            return;
        }
        if (!questions_.remove(offered_->number)) {
            refused_ = "too late";
            return;
        }
        const std::string &user = offered_->message.user;
        if (ports_.answer(offered_->from, consentAnswer(address_, offered_->message, granted),
                          refused_))
            news_ = (granted ? "gave control to " : "refused ") + user;
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
        if (!questions_.empty()) view_.news = questionWords();
        noteShown(now);
        view_.refused = refused_.empty() ? "" : "refused: " + refused_;
        view_.menu = menuOpen_ ? menuLines() : std::vector<std::string>{};
        constexpr const char *kPrompts[] = {"", "keys, e.g. ctrl+alt+f2:", "text:"};
        view_.prompt = kPrompts[prompt_];
        view_.input = line_;
        draw(view_);
    }

    std::string questionWords() const {
        const Question &first = questions_.front();
        const std::size_t more = questions_.size() - 1 + questions_.surplus();
        return first.message.user + " asks for control of " +
               endpointWords(first.from.sender, first.message) +
               (more == 0 ? "" : " (and " + std::to_string(more) + " more)") + ": " +
               options_.escapeName + " y gives it, n refuses";
    }

    void showPointer(const EndpointStatus &status) {
        view_.pointerX.reset();
        view_.pointerY.reset();
        const auto &pointer = forwarder_.pointer();
        if (!pointer || !status.link || status.link->width <= 0 || status.link->height <= 0) return;
        view_.pointerX = (pointer->first + 0.5) / status.link->width;
        view_.pointerY = (pointer->second + 0.5) / status.link->height;
    }

    const ControlOptions &options_;
    ControlledEndpoint endpoint_;
    const std::string address_, name_;
    ConsolePorts ports_;
    Questions questions_;
    Forwarder forwarder_;
    Terminal terminal_{Terminal::kAll};
    TerminalInput input_;

    bool leaving_ = false, readable_ = false, dirty_ = true, keyReports_ = false;
    bool menuOpen_ = false, usbAsked_ = false;
    bool applying_ = false;  ///< as soon as it is known who has control
    bool mine_ = false;      ///< control
    enum Prompt { kNoPrompt, kKeysPrompt, kTextPrompt } prompt_ = kNoPrompt;
    std::string line_;  ///< what was typed at the prompt
    Clock::time_point lastInput_{}, drawn_{};
    std::optional<Question> offered_;  ///< in the menu
    unsigned shown_ = 0;               ///< number of the question on the screen, 0 for none
    Clock::time_point replaced_{};     ///< when one was there no more
    Clock::time_point certainFrom_{};  ///< from when on an answer is for the one that is there
    std::string news_, refused_;
    ControlView view_;
};

void followResizes() {
    struct sigaction resize {};
    resize.sa_handler = [](int) { resized = 1; };
    sigaction(SIGWINCH, &resize, nullptr);
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
    followResizes();
    running.run(stop);
}

}  // namespace quillon
