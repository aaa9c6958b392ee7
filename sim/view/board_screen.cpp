#include "sim/view/board_screen.h"

#include <algorithm>
#include <ctime>

#include "layouts/unicode.h"
#include "protocol/keys.h"
#include "sim/board_control.h"
#include "terminal/screen.h"

namespace sim {
namespace {

using Lock = std::lock_guard<std::mutex>;

constexpr std::chrono::seconds kSecond(1), kPatience(2);
using quillon::bar, quillon::put, quillon::kGreen, quillon::kNoColour, quillon::kRed,
    quillon::kYellow;

constexpr std::size_t kKept = 200;  // lines of the log, and frames
constexpr int kPictureRows = 8, kPictureColumns = 30;
constexpr int kTextColumn = kPictureColumns + 4;
constexpr int kControlRow = kPictureRows + 3;
constexpr char kHelp[] =
    "u cable  s chip silent  v no signal  r restart chip  p power  : more  q quit";

std::string timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[24];
    const std::size_t n = strftime(text, sizeof text, "%T", &local);
    snprintf(text + n, sizeof text - n, ".%03d", static_cast<int>(now.tv_nsec / 1000000));
    return text;
}

std::string keysDown(const Computer::State &state) {
    std::string words = quillon::modifierNames(state.modifiers);
    for (const std::uint8_t usage : state.keys)
        if (usage != 0) words += (words.empty() ? "" : "+") + quillon::keyName(usage);
    return words.empty() ? "none" : words;
}

std::string onOff(bool on) {
    return on ? "on" : "off";
}

// How the computer takes the chip's reports.
std::string takenWords(const Computer::State &state) {
    if (state.waitingSince)
        return "reports waiting: " + std::to_string(state.waiting) + ", for " +
               secondsSince(*state.waitingSince);
    return state.taken ? "last report taken " + secondsSince(*state.taken) + " ago"
                       : "no report yet";
}

// Lines of the log after which somebody else may have control.
bool concernsControl(const std::string &line) {
    constexpr const char *kSigns[] = {"osd rcv command-->connect",
                                      "osd rcv command-->apply",
                                      "osd rcv command-->disconnect",
                                      "osd rcv command-->per",
                                      "heartbeat",
                                      "heartBeat"};
    return std::any_of(std::begin(kSigns), std::end(kSigns),
                       [&](const char *sign) { return line.find(sign) != std::string::npos; });
}

}  // namespace

BoardScreen::BoardScreen(Board &board) : board_(board) {
    if (Machine *machine = board_.computer().machine())
        guest_ = std::make_unique<GuestView>(*machine);
}

void BoardScreen::take(const Traffic &traffic) {
    const Lock lock(mutex_);
    const int way = traffic.toDevice ? 1 : 0;
    for (Bytes &frame : splitters_[way].take(traffic.bytes)) {
        passed_.push_back({timeNow(), traffic.toDevice, std::move(frame)});
        lately_[way].push_back(traffic.at);
        if (passed_.size() > kKept) passed_.pop_front();
    }
}

void BoardScreen::takeLog(const std::string &line) {
    const Lock lock(mutex_);
    log_.push_back(line);
    if (log_.size() > kKept) log_.pop_front();
    holderChanged_ = holderChanged_ || concernsControl(line);
}

// ---- what a person does

bool BoardScreen::typed(const std::string &bytes) {
    if (bytes.size() > 1 && bytes[0] == '\x1b') return true;  // a key without a meaning here
    bool stays = true;
    for (const char key : bytes) {
        if (request_)
            typeRequest(key);
        else
            stays = press(key) && stays;
    }
    return stays;
}

bool BoardScreen::press(char key) {
    constexpr char kCtrlC = 3, kCtrlL = 12;
    switch (key) {
        case 'u':
            request(board_.computer().state().attached ? "unplug" : "plug");
            return true;
        case 's':
            silent_ = !silent_;
            request(silent_ ? "silence" : "answer");
            return true;
        case 'v':
            signal_ = !signal_;
            request(signal_ ? "video 1920x1080" : "no-video");
            return true;
        case 'r':
            request("restart-chip");
            return true;
        case 'p':
            said_ = "the power failed and came back";
            board_.powerCycle();
            return true;
        case ':':
            request_ = "";
            return true;
        case kCtrlL:
            clearok(stdscr, TRUE);
            return true;
        default:
            return key != 'q' && key != kCtrlC;
    }
}

void BoardScreen::typeRequest(char key) {
    constexpr char kCtrlC = 3, kEscape = 27;
    if (key == '\r' || key == '\n') {
        request(*request_);
        request_.reset();
    } else if (key == '\x7f' || key == '\b') {
        if (!request_->empty()) request_->pop_back();
    } else if (key == kEscape || key == kCtrlC) {
        request_.reset();
    } else {
        *request_ += key;
    }
}

void BoardScreen::request(const std::string &text) {
    said_ = controlBoard(board_, text);
    std::replace(said_.begin(), said_.end(), '\n', ' ');
}

// ---- who holds control

void BoardScreen::askWhoControls() {
    const auto now = Clock::now();
    if (asking_)
        if (const auto answer = asking_->answer()) {
            holder_ = answer;
            asking_.reset();
        }
    {
        const Lock lock(mutex_);
        if (!board_.listening() || (asking_ && now - asked_ < kPatience)) return;
        if (!holderChanged_ && !asking_) return;
        holderChanged_ = false;
    }
    asking_ = std::make_unique<HolderQuestion>(board_.options().address,
                                               board_.options().consoles.front());
    asked_ = now;
}

// ---- what is seen

void BoardScreen::drawTitle() const {
    const BoardOptions &options = board_.options();
    const char *chip = options.chip == BoardOptions::kCh9329   ? "CH9329"
                       : options.chip == BoardOptions::kCh9350 ? "CH9350"
                                                               : "no chip";
    std::string text = " " + options.identifier + "  " + options.address;
    text += board_.listening() ? ":" + std::to_string(board_.dataPort()) : "  starting";
    text += std::string("  ") + chip + "  line at " + std::to_string(board_.lineBaud());
    bar(0, text, board_.listening() ? kNoColour : kYellow);
}

void BoardScreen::drawPicture(const Computer::State &state) const {
    const int bottom = kPictureRows + 1, right = kPictureColumns + 1;
    for (const int row : {1, bottom + 1}) {
        mvaddch(row, 0, '+');
        mvhline(row, 1, '-', kPictureColumns);
        mvaddch(row, right, '+');
    }
    for (int row = 2; row <= bottom; ++row) {
        mvaddch(row, 0, '|');
        mvaddch(row, right, '|');
    }
    if (!state.attached) {
        put(5, 8, "no USB cable", A_BOLD, kRed);
        return;
    }
    mvaddch(2 + state.y * kPictureRows / Computer::kScreenHeight,
            1 + state.x * kPictureColumns / Computer::kScreenWidth,
            (state.buttons != 0 ? '*' : '+') | A_BOLD);
}

void BoardScreen::drawComputer(const Computer::State &state) const {
    put(1, kTextColumn, "THE COMPUTER", A_BOLD);
    put(1, kTextColumn + 14, state.attached ? "usb attached" : "usb not attached", A_NORMAL,
        state.attached ? kGreen : kRed);
    put(2, kTextColumn, "usb power: " + onOff(board_.usbPower().value_or(true)));
    put(3, kTextColumn, "keys down: " + keysDown(state));
    put(4, kTextColumn,
        "pointer:   " + std::to_string(state.x) + "," + std::to_string(state.y) +
            (state.buttons & 1 ? " left" : "") + (state.buttons & 2 ? " right" : "") +
            (state.buttons & 4 ? " middle" : "") + ", wheel " + std::to_string(state.wheel));
    put(5, kTextColumn,
        "locks:     num " + onOff((state.leds & kNumLed) != 0) + ", caps " +
            onOff((state.leds & kCapsLed) != 0) + ", scroll " +
            onOff((state.leds & kScrollLed) != 0));
    put(6, kTextColumn, "typed:");
    // The end of the text, on the lines that are left.
    std::u32string text;
    for (const char32_t c : quillon::codePoints(state.text))
        text += c == U'\n' ? U"\\n" : c == U'\t' ? U"\\t" : std::u32string(1, c);
    constexpr std::size_t kLines = 3;
    const auto width = static_cast<std::size_t>(std::max(8, COLS - kTextColumn - 1));
    const std::size_t used = (text.size() + width - 1) / width;
    const std::size_t first = used > kLines ? (used - kLines) * width : 0;
    for (std::size_t at = first, row = 7; at < text.size(); at += width, ++row) {
        std::string line;
        for (const char32_t c : text.substr(at, width)) line += quillon::utf8(c);
        quillon::putText(static_cast<int>(row), kTextColumn, line);
    }
}

// The computer's own screen in the place of the picture; the row behind it.
int BoardScreen::drawMachine(const Computer::State &state) const {
    // Four rows at least for the line and the log, and one each for who controls and for answers.
    constexpr int kFirst = 3, kOthers = 7;
    const std::string condition = board_.computer().machine()->condition();
    const bool well = state.attached && !state.waitingSince;
    put(1, 0, condition, A_BOLD, well ? kNoColour : kYellow);
    put(2, 0,
        std::string(state.attached ? "usb configured" : "usb not configured") +
            " | keys down: " + keysDown(state) + " | num " + onOff((state.leds & kNumLed) != 0) +
            ", caps " + onOff((state.leds & kCapsLed) != 0) + ", scroll " +
            onOff((state.leds & kScrollLed) != 0) + " | " + takenWords(state));
    const int rows = std::max(3, LINES - kFirst - kOthers);
    const int end = kFirst + guest_->draw(kFirst, rows);
    mvhline(end, 0, '-', COLS);
    return end + 1;
}

void BoardScreen::drawControl(int row) {
    // The daemon may be writing the file now, and then it is not complete.
    const auto read = quillon::parseSettings(board_.settings());
    if (read.count("per_enable") != 0) settings_ = read;
    quillon::Colour colour = kNoColour;
    if (holder_ && holder_->linked) colour = holder_->level > 0 ? kGreen : kYellow;
    put(row, 0, "CONTROL", A_BOLD);
    put(row, 9, quillon::whoWords(holder_, settings_, ""), A_NORMAL, colour);
}

std::string BoardScreen::rates() {
    const auto second = Clock::now() - kSecond;
    for (auto &times : lately_)
        while (!times.empty() && times.front() < second) times.pop_front();
    return std::to_string(lately_[1].size()) + " to the chip, " +
           std::to_string(lately_[0].size()) + " from it in the last second";
}

void BoardScreen::drawFrames(int row, int rows) {
    constexpr std::size_t kBytes = 14;
    const Lock lock(mutex_);
    put(row, 0, "SERIAL LINE", A_BOLD);
    put(row, 13, rates());
    const std::size_t shown =
        std::min(passed_.size(), static_cast<std::size_t>(std::max(0, rows - 1)));
    for (std::size_t i = passed_.size() - shown; i < passed_.size(); ++i) {
        const Passed &frame = passed_[i];
        const std::string words = inWords(frame.bytes);
        const bool bad = words.rfind("refused", 0) == 0 || words.rfind("bytes", 0) == 0;
        put(++row, 0, frame.time + (frame.toDevice ? " > " : " < ") + words, A_NORMAL,
            bad ? kRed : kNoColour);
        // On a narrow screen the words are more important than the bytes.
        const int behind = 16 + static_cast<int>(words.size());
        put(row, std::max({36, COLS - 44, behind}), " " + inHex(frame.bytes, kBytes), A_DIM);
    }
}

void BoardScreen::drawLog(int row, int rows) {
    const Lock lock(mutex_);
    put(row, 0, "LOG", A_BOLD);
    const std::size_t shown =
        std::min(log_.size(), static_cast<std::size_t>(std::max(0, rows - 1)));
    for (std::size_t i = log_.size() - shown; i < log_.size(); ++i) put(++row, 0, log_[i]);
}

void BoardScreen::drawFoot() const {
    const bool refused = said_.rfind(kRefused, 0) == 0;
    if (request_)
        bar(LINES - 1, " ctl " + *request_ + "_");
    else
        bar(LINES - 1, " " + std::string(kHelp));
    if (!request_ && !said_.empty()) put(LINES - 2, 0, said_, A_BOLD, refused ? kRed : kNoColour);
    if (request_) put(LINES - 2, 0, controlHelp());
}

void BoardScreen::show() {
    askWhoControls();
    const Computer::State state = board_.computer().state();
    erase();
    drawTitle();
    int control = kControlRow;
    if (guest_) {
        control = drawMachine(state);
    } else {
        drawPicture(state);
        drawComputer(state);
    }
    drawControl(control);
    // A row for answers; of the rest three fifths for the line and two fifths for the log.
    const int first = control + 1, rows = LINES - 2 - first;
    const int frames = std::max(2, rows * 3 / 5);
    drawFrames(first, frames);
    drawLog(first + frames, rows - frames);
    drawFoot();
    refresh();
}

}  // namespace sim
