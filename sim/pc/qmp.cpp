#include "sim/pc/qmp.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

constexpr std::size_t kLongestLine = 4 << 20;

}  // namespace

Qmp::Qmp(int fd) : fd_(fd) {}

Qmp::~Qmp() {
    close(fd_);
}

bool Qmp::send(const Json &message, int descriptor) {
    const std::string line = message.dump() + "\n";
    iovec part{const_cast<char *>(line.data()), line.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))]{};
    msghdr packet{};
    packet.msg_iov = &part;
    packet.msg_iovlen = 1;
    if (descriptor >= 0) {
        packet.msg_control = control;
        packet.msg_controllen = sizeof control;
        cmsghdr *header = CMSG_FIRSTHDR(&packet);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof descriptor);
        memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    }
    // Commands are short, and QEMU reads them while it lives: a socket that is full is as bad as
    // none.
    return sendmsg(fd_, &packet, MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(line.size());
}

void Qmp::post(const std::string &command, const Json &arguments, int descriptor) {
    const std::lock_guard<std::mutex> lock(mutex_);
    send({{"execute", command}, {"arguments", arguments}}, descriptor);
}

Qmp::Json Qmp::execute(const std::string &command, const Json &arguments, int descriptor,
                       std::chrono::seconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    const unsigned id = ++last_;
    const std::runtime_error silent("the virtual computer does not answer");
    if (deaf_) throw silent;
    if (ended_ || !send({{"execute", command}, {"arguments", arguments}, {"id", id}}, descriptor))
        throw std::runtime_error("the virtual computer is not there");
    const auto waiting = answers_.emplace(id, nullptr).first;
    const bool answered =
        changed_.wait_for(lock, patience, [&] { return ended_ || !waiting->second.is_null(); });
    const Json answer = std::move(waiting->second);
    answers_.erase(waiting);
    deaf_ = !answered;
    if (deaf_) throw silent;
    if (answer.is_null()) throw std::runtime_error("the virtual computer has ended");
    if (answer.contains("return")) return answer["return"];
    std::string why;
    if (answer.contains("error") && answer["error"].is_object())
        why = answer["error"].value("desc", "");
    throw std::runtime_error("QEMU refuses " + command + ": " + why);
}

std::string Qmp::monitor(const std::string &line) {
    const Json text = execute("human-monitor-command", {{"command-line", line}});
    return text.is_string() ? text.get<std::string>() : "";
}

void Qmp::take(const std::string &line, const std::function<void(const std::string &)> &onEvent) {
    const Json message = Json::parse(line, nullptr, false);
    if (!message.is_object()) return;
    if (message.contains("event") && message["event"].is_string()) {
        onEvent(message["event"]);
        return;
    }
    if (!message.contains("id") || !message["id"].is_number_unsigned()) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    deaf_ = false;
    const auto waiting = answers_.find(message["id"]);
    if (waiting != answers_.end()) waiting->second = message;
    changed_.notify_all();
}

bool Qmp::read(const std::function<void(const std::string &)> &onEvent) {
    char chunk[65536];
    const ssize_t n = recv(fd_, chunk, sizeof chunk, MSG_DONTWAIT);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (n <= 0 || pending_.size() > kLongestLine) return false;
    pending_.append(chunk, static_cast<std::size_t>(n));
    for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
        const std::string line = pending_.substr(0, end);
        pending_.erase(0, end + 1);
        take(line, onEvent);
    }
    return true;
}

void Qmp::end() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

}  // namespace sim
