#include "sim/view/holder_question.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "protocol/ports.h"
#include "protocol/requests.h"

namespace sim {
namespace {

sockaddr_in parse(const std::string &address, std::uint16_t port) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &in.sin_addr);
    return in;
}

}  // namespace

HolderQuestion::HolderQuestion(const std::string &endpoint, const std::string &from)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const sockaddr_in own = parse(from, 0), peer = parse(endpoint, quillon::kOperatorPort);
    if (bind(fd_, reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0) return;
    // Connected: only the endpoint is heard.
    if (connect(fd_, reinterpret_cast<const sockaddr *>(&peer), sizeof peer) == 0)
        send(fd_, quillon::kHolderQuestion, strlen(quillon::kHolderQuestion), 0);
}

HolderQuestion::~HolderQuestion() {
    close(fd_);
}

std::optional<quillon::Holder> HolderQuestion::answer() {
    char text[256];
    const ssize_t n = recv(fd_, text, sizeof text, 0);
    if (n <= 0) return std::nullopt;
    return quillon::parseHolder(std::string(text, static_cast<std::size_t>(n)));
}

}  // namespace sim
