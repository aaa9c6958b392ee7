// The result of an upload, as it comes through the management queue.
#pragma once

#include <string>

namespace flash {

/// A queue made for one upload. It has no key by which others could find it, and its mode keeps
/// other users out: what it says is what the upload said.
class ResultQueue {
  public:
    /// c_netmsgid names the queue until it goes, here and in processes that are forked meanwhile.
    /// Throws std::runtime_error when there is none to be had.
    ResultQueue();
    ~ResultQueue();
    ResultQueue(const ResultQueue &) = delete;
    ResultQueue &operator=(const ResultQueue &) = delete;

    /// What the upload that ended replied; empty when it did not.
    std::string receive() const;
};

/// Prints the reply of an upload, which is not empty, board by board. True when boards were
/// programmed and none failed.
bool printResult(const std::string &reply);

}  // namespace flash
