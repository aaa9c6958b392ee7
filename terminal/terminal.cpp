#include "terminal/terminal.h"

#include <curses.h>
#include <sys/ioctl.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <stdexcept>

#include "terminal/screen.h"

namespace quillon {
namespace {

// Any motion of the mouse (1003) in SGR reports (1006), focus (1004), bracketed paste (2004); and
// of the kitty keyboard protocol all keys as sequences (8) with releases (2), base keys (4), the
// text that they type (16), and without doubt what is an escape (1). A terminal that knows the
// protocol answers the question behind.
constexpr char kEnter[] = "\x1b[?1003h\x1b[?1006h\x1b[?1004h\x1b[?2004h\x1b[>31u\x1b[?u";
constexpr char kLeave[] = "\x1b[<u\x1b[?2004l\x1b[?1004l\x1b[?1006l\x1b[?1003l";

void writeAll(const char *text) {
    for (std::size_t left = strlen(text); left > 0;) {
        const ssize_t n = write(STDOUT_FILENO, text, left);
        if (n < 0 && errno != EINTR) return;
        if (n <= 0) continue;
        text += n;
        left -= static_cast<std::size_t>(n);
    }
}

}  // namespace

Terminal::Terminal(Reports reports) : reports_(reports) {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)
        throw std::runtime_error("a full screen needs a terminal");
    setlocale(LC_CTYPE, "");
    screen_ = newterm(nullptr, stdout, stdin);
    if (screen_ == nullptr || cursor_address == nullptr) {
        if (screen_ != nullptr) leave();
        throw std::runtime_error("this terminal cannot place its cursor; is TERM right?");
    }
    raw();
    noecho();
    nonl();
    curs_set(0);
    startColours();
    // The first refresh would clear what is drawn before it.
    refresh();
    if (reports_ == kAll) writeAll(kEnter);
}

Terminal::~Terminal() {
    if (reports_ == kAll) writeAll(kLeave);
    // What the terminal still reports must not end up in the shell.
    flushinp();
    leave();
}

void Terminal::leave() {
    endwin();
    delscreen(screen_);
}

std::string Terminal::read(bool &closed) {
    char bytes[1024];
    const ssize_t n = ::read(STDIN_FILENO, bytes, sizeof bytes);
    closed = n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN);
    return std::string(bytes, static_cast<std::size_t>(n > 0 ? n : 0));
}

void Terminal::resize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
        resizeterm(size.ws_row, size.ws_col);
}

std::function<void()> Terminal::restorer() {
    termios modes{};
    const bool terminal = tcgetattr(STDIN_FILENO, &modes) == 0;
    return [=] {
        if (!terminal) return;
        writeAll(kLeave);
        int error = 0;
        if (setupterm(nullptr, STDOUT_FILENO, &error) == OK)
            for (const char *capability : {exit_attribute_mode, cursor_normal, exit_ca_mode})
                if (capability != nullptr) putp(capability);
        fflush(stdout);
        // Unless a shell has made it its own again.
        termios now{};
        if (tcgetattr(STDIN_FILENO, &now) == 0 && (now.c_lflag & ISIG) == 0)
            tcsetattr(STDIN_FILENO, TCSAFLUSH, &modes);
    };
}

}  // namespace quillon
