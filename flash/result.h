// The result of an upload, as it comes through the management queue.
#pragma once

#include <string>

namespace flash {

/// A queue of this process alone, made for one upload.
class ResultQueue {
  public:
    /// folder, which exists and belongs to this upload, gives the key. The daemon's c_netmsgid
    /// names the queue until it goes. Throws std::runtime_error when there is none to be had.
    explicit ResultQueue(const std::string &folder);
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
