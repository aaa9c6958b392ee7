#include "flash/result.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "common/common.h"
#include "state.h"
#include "terminal/printable.h"

namespace flash {

ResultQueue::ResultQueue() {
    c_netmsgid = msgget(IPC_PRIVATE, 0600);
    if (c_netmsgid < 0)
        throw std::runtime_error(std::string("the system gives no message queue (see ipcs -l): ") +
                                 strerror(errno));
}

ResultQueue::~ResultQueue() {
    DeleteMessageQueue(c_netmsgid);
}

std::string ResultQueue::receive() const {
    msg_st message;
    const ssize_t size =
        msgrcv(c_netmsgid, &message, sizeof message.mtext, c_netmsgtype * 2 + 1, IPC_NOWAIT);
    return size < 0 ? "" : std::string(message.mtext, static_cast<std::size_t>(size));
}

bool printResult(const std::string &reply) {
    const char *said = nullptr;
    if (reply == "timeout") said = "the microcontroller did not tell its boards within 2.5 s";
    if (reply == "file error") said = "the file was refused";
    if (reply == "upload error") said = "what the microcontroller told of its boards is no list";
    if (said != nullptr) {
        fprintf(stderr, "quillon-flash: %s; nothing was programmed\n", said);
        return false;
    }
    std::istringstream results(reply);
    unsigned programmed = 0, failed = 0;
    for (std::string result; std::getline(results, result, ';');) {
        const std::size_t colon = result.find(':');
        const std::string state = colon == std::string::npos ? "" : result.substr(colon + 1);
        if (state == "OK") ++programmed;
        if (state == "Failed") ++failed;
        printf("board %-3s %s\n", quillon::printable(result.substr(0, colon)).c_str(),
               state == "N/A" ? "absent" : quillon::printable(state).c_str());
    }
    if (programmed + failed == 0) fprintf(stderr, "quillon-flash: no board is present\n");
    return programmed != 0 && failed == 0;
}

}  // namespace flash
