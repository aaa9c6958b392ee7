// Chooses what a bad line or network loses; the same seed chooses the same ones.
#pragma once

#include <random>

namespace sim {

class Losses {
  public:
    /// part: the share of calls of happen() that return true, 0 to 1.
    explicit Losses(double part = 0, unsigned seed = 0) : part_(part), random_(seed) {}

    /// True when this frame, datagram, answer or checksum is lost.
    bool happen() { return part_ > 0 && chance_(random_) < part_; }

  private:
    double part_;
    std::mt19937 random_;
    std::uniform_real_distribution<double> chance_{0, 1};
};

}  // namespace sim
