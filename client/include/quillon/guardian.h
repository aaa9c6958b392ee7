// A second process that cleans up behind this one when it is killed.
#pragma once

#include <functional>

namespace quillon {

class Guardian {
  public:
    /// Runs cleanUp in a process of its own when this one ends without ~Guardian. Make it before
    /// any thread and any socket. Throws std::runtime_error when the system refuses.
    explicit Guardian(const std::function<void()> &cleanUp);
    ~Guardian();
    Guardian(const Guardian &) = delete;
    Guardian &operator=(const Guardian &) = delete;

  private:
    int pipe_ = -1;
    int child_ = -1;
};

}  // namespace quillon
