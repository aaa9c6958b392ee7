// Connections that have not shown yet who they are.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>

namespace gateway {

/// Has a number of places. Who comes when all are taken sends the one away that has waited longest,
/// so that silent connections do not keep others out; and an address that has its share of the
/// places sends its own away. An object is for one thread.
class WaitingRoom {
  public:
    /// share: places for one address.
    WaitingRoom(std::size_t places, std::size_t share) : places_(places), share_(share) {}

    struct Entry {
        std::string from;
        std::function<void()> dismiss;
    };
    using Entries = std::list<Entry>;

    /// Gives the place up at its end, which may be later than the room's.
    class Ticket {
      public:
        Ticket(std::shared_ptr<Entries> entries, Entries::iterator place)
            : entries_(std::move(entries)), place_(place) {}
        ~Ticket() { entries_->erase(place_); }
        Ticket(const Ticket &) = delete;
        Ticket &operator=(const Ticket &) = delete;

      private:
        const std::shared_ptr<Entries> entries_;
        const Entries::iterator place_;
    };

    /// dismiss: called at most once, and not after the ticket's end.
    std::shared_ptr<Ticket> enter(const std::string &from, std::function<void()> dismiss);

  private:
    const std::size_t places_, share_;
    const std::shared_ptr<Entries> waiting_ = std::make_shared<Entries>();
};

}  // namespace gateway
