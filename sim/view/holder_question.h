// Asks a board's daemon who holds control, as a console would, without waiting for the answer.
#pragma once

#include <optional>
#include <string>

#include "protocol/answers.h"

namespace sim {

class HolderQuestion {
  public:
    /// Sends the question to the endpoint from an address of the private host.
    HolderQuestion(const std::string &endpoint, const std::string &from);
    ~HolderQuestion();
    HolderQuestion(const HolderQuestion &) = delete;
    HolderQuestion &operator=(const HolderQuestion &) = delete;

    /// The answer; none while there is none. The datagram may be lost, so a caller asks again
    /// after a while.
    std::optional<quillon::Holder> answer();

  private:
    int fd_ = -1;
};

}  // namespace sim
