// The consoles that watch the endpoint: they answer heartbeats, on UDP port 41237 of their
// addresses.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace sim {

class OutputConsoles {
  public:
    /// Throws std::runtime_error when an address cannot be listened at.
    explicit OutputConsoles(const std::vector<std::string> &addresses);
    ~OutputConsoles();
    OutputConsoles(const OutputConsoles &) = delete;
    OutputConsoles &operator=(const OutputConsoles &) = delete;

    /// Stops or starts answering at one address; false when no console has it.
    bool setAnswering(const std::string &address, bool on);

  private:
    void serve();

    const std::vector<std::string> addresses_;
    std::vector<int> sockets_;
    int wake_ = -1;
    std::mutex mutex_;
    std::set<std::string> silent_;
    std::thread thread_;
};

}  // namespace sim
