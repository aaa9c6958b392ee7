// quillon-guard: the settings survive a power cut.

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "service/options.h"
#include "service/settings_guard.h"
#include "terminal/program.h"

namespace {

using service::Restored;

// What the disk refuses now, it may take at the next write.
void keep(const std::string &folder, bool evenOlder) {
    try {
        service::keepSettings(folder, evenOlder);
    } catch (const std::system_error &error) {
        fprintf(stderr, "quillon-guard: %s; the copy is as it was\n", error.what());
    }
}

int restore(const std::string &folder) {
    const auto say = [](const char *why) {
        printf("%s: the copy is back in its place\n", why);
        return 0;
    };
    switch (service::restoreSettings(folder)) {
        case Restored::kMissing:
            return say("quillon.ini was missing");
        case Restored::kIncomplete:
            return say("quillon.ini was incomplete");
        case Restored::kOlder:
            return say("quillon.ini was older than its copy");
        case Restored::kNoCopy:
            puts(
                "quillon.ini is missing or incomplete, and there is no copy; the daemon fills in "
                "its defaults");
            return 0;
        case Restored::kNone:
            break;
    }
    // Good settings, which a broken disk must not keep from being used.
    keep(folder, false);
    return 0;
}

// Whatever a signal interrupts, the copy is whole: it is replaced by a rename.
[[noreturn]] void watch(const std::string &folder) {
    const int events = inotify_init1(IN_CLOEXEC);
    // The folder, because a restored file is another file of the same name.
    if (events < 0 ||
        inotify_add_watch(events, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR) < 0)
        throw std::system_error(errno, std::generic_category(), "cannot watch " + folder);
    // Not what a power cut left: that is for restore.
    keep(folder, false);
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t size = read(events, buffer, sizeof buffer);
        if (size <= 0) throw std::system_error(errno, std::generic_category(), "inotify");
        bool written = false;
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            memcpy(&event, buffer + at, sizeof event);
            const char *name = buffer + at + sizeof event;
            if ((event.mask & IN_IGNORED) != 0) throw std::runtime_error(folder + " was removed");
            written = written || (event.mask & IN_Q_OVERFLOW) != 0 ||
                      (event.len > 0 && strcmp(name, service::kSettingsName) == 0);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
        if (written) keep(folder, true);
    }
}

}  // namespace

int main(int argc, char **argv) {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    CLI::App app{"", "quillon-guard"};
    service::GuardOptions options;
    service::describeGuard(app, options);
    return quillon::runProgram(app, argc, argv, [&] {
        if (app.got_subcommand("restore")) return restore(options.folder);
        if (app.got_subcommand("watch")) watch(options.folder);
        const auto state = service::compareSettings(options.folder);
        puts(state.words.c_str());
        return state.good ? 0 : 1;
    });
}
