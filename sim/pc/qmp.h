// QEMU's control protocol: requests and answers as lines of JSON.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace sim {

class Qmp {
  public:
    using Json = nlohmann::json;

    /// On a connected stream socket, which it closes at its end.
    explicit Qmp(int fd);
    ~Qmp();
    Qmp(const Qmp &) = delete;
    Qmp &operator=(const Qmp &) = delete;

    int descriptor() const { return fd_; }

    /// Sends a command and waits for its answer, from any thread but the one that calls read().
    /// A descriptor goes along, and stays open here. Throws std::runtime_error when QEMU refuses,
    /// ends, or does not answer in time; after that at once, until it says something again.
    Json execute(const std::string &command, const Json &arguments = Json::object(),
                 int descriptor = -1, std::chrono::seconds patience = std::chrono::seconds(3));
    /// The same without waiting for the answer.
    void post(const std::string &command, const Json &arguments = Json::object(),
              int descriptor = -1);
    /// The answer of the monitor for people, as text.
    std::string monitor(const std::string &line);

    /// Takes what has arrived; false at the end. onEvent gets the names of QEMU's events.
    bool read(const std::function<void(const std::string &)> &onEvent);
    /// All that wait for an answer stop to.
    void end();

  private:
    bool send(const Json &message, int descriptor);
    void take(const std::string &line, const std::function<void(const std::string &)> &onEvent);

    const int fd_;
    std::string pending_;

    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned last_ = 0;                 ///< number of a command
    std::map<unsigned, Json> answers_;  ///< null: somebody waits
    bool ended_ = false, deaf_ = false;
};

}  // namespace sim
