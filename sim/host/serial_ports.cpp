#include "sim/host/serial_ports.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "sim/host/paths.h"
#include "sim/host/serial_port.h"
#include "sim/host/uart_events.h"

namespace sim {
namespace {

int listenForUartEvents() {
    unlink(kUartSocket);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, kUartSocket);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, 8) != 0)
        throw std::runtime_error("cannot listen at " + std::string(kUartSocket) + ": " +
                                 strerror(errno));
    return fd;
}

}  // namespace

SerialPorts::SerialPorts(bool paced, const std::string &devices) {
    for (std::size_t i = 0; i < kCount; ++i) {
        const auto tap = [this, i](bool toDevice, const Bytes &bytes) {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (callback_) callback_({Clock::now(), static_cast<int>(i), toDevice, bytes});
        };
        ports_[i] = std::make_unique<SerialPort>("ttyAMA" + std::to_string(i), devices, paced, tap);
    }
    // A daemon elsewhere has no preload library to tell of anything.
    if (devices.empty()) events_ = listenForUartEvents();
    wake_ = eventfd(0, EFD_CLOEXEC);
    if (wake_ < 0) throw std::runtime_error("eventfd: " + std::string(strerror(errno)));
    thread_ = std::thread([this] { serve(); });
}

SerialPorts::~SerialPorts() {
    eventfd_write(wake_, 1);
    thread_.join();
    for (const int client : clients_) close(client);
    if (events_ >= 0) close(events_);
    close(wake_);
}

void SerialPorts::attach(int port, SerialDevice &device) {
    ports_.at(static_cast<std::size_t>(port))->attach(device);
}

void SerialPorts::onTraffic(std::function<void(const Traffic &)> callback) {
    const std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

void SerialPorts::powerCut() {
    const std::lock_guard<std::mutex> lock(wires_);
    for (const auto &port : ports_) port->powerCut();
}

int SerialPorts::hostBaud(int port) const {
    return ports_.at(static_cast<std::size_t>(port))->hostBaud();
}

void SerialPorts::serveUartEvents(int client) {
    UartEvent event{};
    const ssize_t n = recv(client, &event, sizeof event, MSG_PEEK | MSG_DONTWAIT);
    if (n < 0 && errno == EAGAIN) return;
    bool finished = true;
    if (n == sizeof event && event.port < kCount) {
        SerialPort &port = *ports_[event.port];
        port.run(Clock::now());
        // An event that has to wait for the wire stays unread and is looked at again later. An open
        // waits too, because the close of a process that was killed may still wait before it.
        finished = port.drained();
        if (event.kind == UartEvent::kOpened && finished) port.hostOpened();
        if (event.kind == UartEvent::kClosing && finished) port.hostClosed();
    }
    if (!finished) return;
    const char done = 1;
    send(client, &done, sizeof done, MSG_NOSIGNAL | MSG_DONTWAIT);
    close(client);
    clients_.erase(std::find(clients_.begin(), clients_.end(), client));
}

void SerialPorts::serve() {
    // Without this the system may add 50 us to each wait, and so to the time of every byte.
    prctl(PR_SET_TIMERSLACK, 1);
    std::unique_lock<std::mutex> lock(wires_);
    for (;;) {
        std::vector<pollfd> fds{{wake_, POLLIN, 0}, {events_, POLLIN, 0}};
        auto due = Clock::time_point::max();
        for (const auto &port : ports_) {
            fds.push_back({port->descriptor(), POLLIN, 0});
            due = std::min(due, port->due());
        }
        const bool idle = due == Clock::time_point::max();
        // A drain that waits stays readable, so it is not polled; the wire's due time wakes us.
        const bool draining = std::any_of(ports_.begin(), ports_.end(),
                                          [](const auto &port) { return !port->drained(); });
        for (const int client : clients_)
            if (!draining) fds.push_back({client, POLLIN, 0});
        timespec wait{};
        const auto left = std::max(due - Clock::now(), Clock::duration::zero());
        wait.tv_sec = idle ? 0 : std::chrono::duration_cast<std::chrono::seconds>(left).count();
        wait.tv_nsec = idle ? 0 : static_cast<long>((left % std::chrono::seconds(1)).count());
        lock.unlock();
        ppoll(fds.data(), fds.size(), idle ? nullptr : &wait, nullptr);
        lock.lock();

        if ((fds[0].revents & POLLIN) != 0) return;
        for (const auto &port : ports_) port->run(Clock::now());
        if ((fds[1].revents & POLLIN) != 0) {
            const int client = accept4(events_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client >= 0) clients_.push_back(client);
        }
        const std::vector<int> waiting = clients_;
        for (const int client : waiting) serveUartEvents(client);
    }
}

}  // namespace sim
