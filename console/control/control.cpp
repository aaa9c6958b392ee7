#include "console/control/control.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "console/control/consent.h"
#include "console/control/forwarder.h"
#include "console/control/keys.h"
#include "console/control/menu.h"
#include "console/control/view.h"
#include "console/control/words.h"
#include "protocol/link_messages.h"
#include "terminal/terminal.h"
#include "terminal/terminal_input.h"
#include <quillon/console_ports.h>
#include <quillon/guardian.h>
#include <quillon/link_control.h>

namespace quillon {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kRedraw(33), kTick(500);

volatile std::sig_atomic_t resized = 0;

class Control {
  public:
    explicit Control(const ControlOptions &options)
        : options_(options),
          endpoint_(options.endpoint),
          address_(endpoint_.ownAddress()),
          name_(conventionalName(options.user, address_)),
          ports_(address_, ConsolePorts::kSelfOrOther),
          consent_(address_, options.endpoint.to),
          menu_(options.escapeName),
          typist_(options.layout),
          forwarder_(endpoint_, typist_, options.endpoint.asSoftware) {
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
            // Before new questions: the same user may ask again.
            while (const auto user = consent_.takeLate(now))
                news_ = "too late: " + *user + " got no answer";
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
                if (!menu_.open() && !menu_.prompting()) mouse(event);
                return;
            case TerminalEvent::kPaste:
                if (menu_.prompting())
                    menu_.paste(event.text);
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
                if (!event.text.empty()) refused_ = "the terminal sent bytes that are no character";
                return;
            default:
                key(event);
        }
    }

    // ---- what a person does

    void key(const TerminalEvent &event) {
        const auto position = positionOf(event);
        const bool modifier = position && position->usage >= kUsageLeftCtrl;
        const bool down = event.kind == TerminalEvent::kTap || event.kind == TerminalEvent::kPress;
        // By its position, so that the way out does not depend on the computer's layout.
        if (down && position == options_.escape) {
            forwarder_.letGo();
            escape();
        } else if (menu_.open() || menu_.prompting()) {
            if (event.kind != TerminalEvent::kRelease && !modifier)
                carryOut(menu_.type(event.key, event.character));
        } else if (forwarder_.pasting()) {
            if (down && !modifier)
                refused_ = "keys wait for the paste; " + options_.escapeName + " stops it";
        } else {
            const std::string why = forwarder_.key(event);
            if (down) complain(why);
        }
    }

    void mouse(const TerminalEvent &event) {
        const std::string why = forwarder_.mouse(event, pictureArea());
        if (event.action != TerminalEvent::kMove || !why.empty()) complain(why);
    }

    void paste(const std::string &text) { complain(forwarder_.paste(text)); }

    void feedPaste() {
        if (!forwarder_.feedPaste()) return;
        dirty_ = true;
        news_ = !forwarder_.pasting() ? "pasted"
                                      : "pasting, " + std::to_string(forwarder_.pastedPercent()) +
                                            " %; " + options_.escapeName + " stops it";
    }

    void escape() {
        if (forwarder_.pasting()) {
            news_ = "the paste was stopped";
            forwarder_.stopPaste();
            return;
        }
        menu_.toggle();
        // y and n are for the user whom the menu names, whoever else asks meanwhile.
        consent_.offer();
    }

    void carryOut(const Menu::Choice &choice) {
        const auto now = Clock::now();
        switch (choice.action) {
            case Menu::kNothing:
                return;
            case Menu::kApply:
                return apply();
            case Menu::kDisconnect:
                return disconnect(now);
            case Menu::kMouseMode:
                forwarder_.forgetPointer();
                return endpoint_.command(mouseModeRequest(!relative()), now);
            case Menu::kUsbTest:
                news_ = "testing whether a computer is on the USB cable";
                usbAsked_ = true;
                return endpoint_.testUsb();
            case Menu::kEscapeKey:
                return complain(forwarder_.tap(options_.escape));
            case Menu::kQuit:
                leaving_ = true;
                return;
            case Menu::kGrant:
            case Menu::kRefuse:
                return answer(choice.action == Menu::kGrant);
            case Menu::kKeys:
                return sendCombo(choice.text);
            case Menu::kText:
                return paste(choice.text);
        }
    }

    void sendCombo(const std::string &text) {
        std::string error;
        const auto stroke = parseCombo(text, error, keyOf(typist_));
        if (!stroke) {
            refused_ = error;
            return;
        }
        news_ = "sent " + strokeName(*stroke);
        complain(forwarder_.tap(*stroke));
    }

    void answer(bool granted) {
        const std::string done = consent_.answer(granted, ports_, Clock::now(), refused_);
        if (!done.empty()) news_ = done;
    }

    // Why something could not be done, or else why the endpoint will not take it.
    void complain(const std::string &why) {
        refused_ = !why.empty() || options_.endpoint.asSoftware
                       ? why
                       : whyNotTaken(endpoint_.status(), address_);
    }

    bool relative() const { return endpoint_.status().link && endpoint_.status().link->relative; }

    // ---- who holds control

    // What is down can only be let go as software's record, because an endpoint takes no others
    // from a console that lost control.
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

    void apply() {
        applying_ = false;
        const LinkRequest wanted{name_, address_, options_.level};
        const EndpointStatus &status = endpoint_.status();
        refused_ = objection(wanted);
        if (status.settings && !permissionsOn(*status.settings))
            refused_ = "permissions are off, so there is no control to apply for";
        if (!refused_.empty()) return;
        // For the user who holds control, "apply" would link the same output a second time.
        if (mine_ && status.settings && maySend(*status.settings, address_) == MaySend::kYes) {
            news_ = "you hold control already";
            return;
        }
        news_ = "applying for control; the user who holds it has 10 s to answer";
        endpoint_.command(mine_ ? connectRequest(wanted) : applyRequest(wanted), Clock::now());
    }

    // An endpoint takes the beginning of a name for the whole.
    void disconnect(Clock::time_point now) {
        if (!mine_) {
            refused_ = "you do not hold control";
            return;
        }
        news_ = "giving control up";
        endpoint_.command(disconnectRequest({name_, address_, options_.level}), now);
    }

    void take(const DatagramSocket::Received &datagram) {
        const auto message = parseLinkMessage(datagram.text);
        if (!message) return;
        dirty_ = true;
        // The name in a message proves nothing; the address that it came from counts.
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
        if (consent_.add(*message, datagram, Clock::now())) ring();
    }

    // ---- what is seen

    void show(Clock::time_point now) {
        const EndpointStatus &status = endpoint_.status();
        if (usbAsked_ && !endpoint_.testsUsb()) {
            usbAsked_ = false;
            news_ = !status.usb   ? "the endpoint did not answer the USB-link test"
                    : *status.usb ? "a computer is on the USB cable"
                                  : "no computer is on the USB cable";
        }
        const std::string who = whoWords(status.holder, status.settings, name_);
        const std::string devices = deviceWords(status, endpoint_.input());
        if (who != view_.who || devices != view_.devices || now - drawn_ >= kTick) dirty_ = true;
        if (!dirty_ || now - drawn_ < kRedraw) return;
        dirty_ = false;
        drawn_ = now;
        view_.title = " quillon  " + options_.endpoint.to + "   " + options_.escapeName + " menu" +
                      (keyReports_ ? "   keys are held as long as you hold them" : "");
        view_.lost = !status.reachable;
        view_.inThePicture = relative() ? "the mouse here moves the computer's pointer"
                                        : "the mouse here places the computer's pointer";
        view_.who = who;
        view_.devices = devices;
        const bool linked = status.holder && status.holder->linked;
        view_.standing = !linked                        ? ControlView::kPlain
                         : status.holder->user == name_ ? ControlView::kMine
                                                        : ControlView::kForeign;
        showPointer(status);
        const std::string question = consent_.shown(options_.escapeName, now);
        view_.news = question.empty() ? news_ : question;
        view_.refused = refused_.empty() ? "" : "refused: " + refused_;
        view_.menu = menu_.lines(relative(), consent_.offered());
        view_.prompt = menu_.prompt();
        view_.input = menu_.input();
        draw(view_);
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
    Consent consent_;
    Menu menu_;
    const Typist typist_;
    Forwarder forwarder_;
    Terminal terminal_{Terminal::kAll};
    TerminalInput input_;

    bool leaving_ = false, readable_ = false, dirty_ = true, keyReports_ = false;
    bool usbAsked_ = false;
    bool applying_ = false;  ///< apply() is to run once holder and settings are known
    bool mine_ = false;      ///< this user holds control
    Clock::time_point lastInput_{}, drawn_{};
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
    // What is left to do when this process is killed: the keys first, for a terminal may take its
    // time.
    const Guardian guardian([&options, restore = Terminal::restorer()] {
        ControlledEndpoint(options.endpoint).finish();
        restore();
    });
    Control running(options);
    followResizes();
    running.run(stop);
}

}  // namespace quillon
