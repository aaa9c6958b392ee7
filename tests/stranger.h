// Another user of the machine.
#pragma once

#include <functional>

namespace test {

/// A process of another user, which does something and then stays until the object goes.
class Stranger {
  public:
    /// Returns once deed has been done; it must not touch anything of gtest.
    explicit Stranger(const std::function<void()> &deed);
    ~Stranger();
    Stranger(const Stranger &) = delete;
    Stranger &operator=(const Stranger &) = delete;

    /// False where this process cannot become somebody else: its user namespace knows one user.
    bool exists() const { return exists_; }

  private:
    int child_ = -1;
    bool exists_ = false;
};

/// Binds a name of the abstract name space and listens there; answers everybody with a text.
void listenAt(const char *abstractName, const char *answer);
/// Connects to one and says nothing; its descriptor.
int connectTo(const char *abstractName);
/// Connects to one, and returns once that closes the connection.
void hearAt(const char *abstractName);

}  // namespace test
