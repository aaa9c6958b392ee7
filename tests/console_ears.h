// What all consoles of the private host hear on their link port, in the order in which it came.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace test {

class ConsoleEars {
  public:
    /// Listens at all addresses, and in the consoles' group on eth0.
    ConsoleEars();
    ~ConsoleEars();

    /// What a question for consent is answered from now on; none: not at all.
    void answer(std::optional<std::string> text);

    /// Waits for count datagrams, 5 s at most, and takes all that were sent until now. Each is
    /// "FROM-PORT>DESTINATION TEXT", with "+N" for N zero bytes behind the text; the destination
    /// is "all" for the group.
    std::vector<std::string> take(std::size_t count);

  private:
    void hearOne();

    int socket_ = -1;
    std::atomic<bool> ending_{false};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> heard_;
    bool ended_ = false;
    std::optional<std::string> answer_;
    std::thread thread_;
};

}  // namespace test
