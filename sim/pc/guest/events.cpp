// Runs in the Linux guest: prints what its input devices report, one line for each event, as the
// kernel's type, code and value. With a number it sets the console's lock keys instead, as a
// program of the guest may do. Links the C library alone, statically; the guest has no other.

#include <fcntl.h>
#include <linux/input.h>
#include <linux/kd.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kDevices = 32;
pollfd readable[kDevices + 1];

// Devices on the USB only: the computer has a keyboard of its own.
void openDevices() {
    for (int n = 0; n < kDevices; ++n) {
        pollfd &slot = readable[n + 1];
        char path[32];
        snprintf(path, sizeof path, "/dev/input/event%d", n);
        if (slot.fd >= 0 || (slot.fd = open(path, O_RDONLY | O_NONBLOCK)) < 0) continue;
        input_id id{};
        if (ioctl(slot.fd, EVIOCGID, &id) == 0 && id.bustype == BUS_USB) {
            char name[80] = "";
            ioctl(slot.fd, EVIOCGNAME(sizeof name - 1), name);
            printf("device %d %s\n", n, name);
            continue;
        }
        close(slot.fd);
        slot.fd = -1;
    }
}

void readEvents(int n) {
    pollfd &slot = readable[n + 1];
    input_event event;
    for (;;) {
        const ssize_t size = read(slot.fd, &event, sizeof event);
        if (size != sizeof event) break;
        if (event.type == EV_KEY || event.type == EV_REL || event.type == EV_ABS ||
            event.type == EV_LED)
            printf("%u %u %d\n", event.type, event.code, event.value);
    }
    if ((slot.revents & (POLLERR | POLLHUP)) == 0) return;
    printf("gone %d\n", n);
    close(slot.fd);
    slot.fd = -1;
}

// Bits 0 to 2: Scroll, Num, Caps.
int setLocks(unsigned long locks) {
    const int screen = open("/dev/tty1", O_RDWR);
    return screen >= 0 && ioctl(screen, KDSKBLED, locks) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1) return setLocks(strtoul(argv[1], nullptr, 0));
    setvbuf(stdout, nullptr, _IOLBF, 1024);
    for (pollfd &slot : readable) slot = {-1, POLLIN, 0};
    readable[0].fd = inotify_init1(IN_NONBLOCK);
    if (inotify_add_watch(readable[0].fd, "/dev/input", IN_CREATE) < 0) {
        perror("/dev/input");
        return 1;
    }
    openDevices();
    for (;;) {
        poll(readable, kDevices + 1, -1);
        for (int n = 0; n < kDevices; ++n)
            if (readable[n + 1].revents != 0) readEvents(n);
        if (readable[0].revents == 0) continue;
        char created[4096];
        while (read(readable[0].fd, created, sizeof created) > 0) continue;
        openDevices();
    }
}
