// What gets lost on a bad line or network, by a seed.
#pragma once

#include <random>

namespace sim {

class Losses {
  public:
    /// part: of all chances, 0 to 1.
    explicit Losses(double part = 0, unsigned seed = 0) : part_(part), random_(seed) {}

    /// Does it happen to this one?
    bool happen() { return part_ > 0 && chance_(random_) < part_; }

  private:
    double part_;
    std::mt19937 random_;
    std::uniform_real_distribution<double> chance_{0, 1};
};

}  // namespace sim
