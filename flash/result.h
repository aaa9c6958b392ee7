// The result of an upload, as the management queue delivers it.
#pragma once

#include <string>

namespace flash {

/// A message queue for one upload. It has no key by which others could find it, and its mode keeps
/// other users out, so that its messages come from the upload alone.
class ResultQueue {
  public:
    /// Sets c_netmsgid to the queue, also for processes that are forked later. Throws
    /// std::runtime_error when the system gives no queue.
    ResultQueue();
    ~ResultQueue();
    ResultQueue(const ResultQueue &) = delete;
    ResultQueue &operator=(const ResultQueue &) = delete;

    /// The reply of an upload that has ended; empty when there is none. Does not wait.
    std::string receive() const;
};

/// Prints the non-empty reply of an upload, board by board. True when at least one board was
/// programmed and none failed.
bool printResult(const std::string &reply);

}  // namespace flash
