// One endpoint with the viewers that sit before it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/control_keeper.h"
#include "gateway/input/lock_keys.h"
#include "gateway/picture/picture.h"
#include "layouts/typing.h"
#include "protocol/link_messages.h"
#include <quillon/console_ports.h>
#include <quillon/controlled_endpoint.h>

namespace gateway {

/// What another process has to know to let go what is down at an endpoint.
struct Leftover {
    bool restless;  ///< something may be down
    bool relative;  ///< the mouse mode
    bool placed;    ///< the position is known
    std::uint16_t x, y;
};

class Desk;

/// What a desk tells a viewer.
class Sitter {
  public:
    virtual ~Sitter() = default;
    /// The picture, the lock keys or the mouse mode changed.
    virtual void changed() = 0;
    /// The endpoint lost what was sent, or takes no more from here: everything is to be let go, and
    /// what is down counts again only after its release.
    virtual void letGo() = 0;
    /// Where it comes from, for the picture.
    virtual const std::string &from() const = 0;
    /// It cannot take JPEGs, so they have to be decoded for it.
    virtual bool wantsPixels() const = 0;
};

/// Typists for the states of the lock keys, made when they are needed and kept for all desks.
class Typists {
  public:
    const quillon::Typist &typist(const quillon::LayoutChoice &choice,
                                  const quillon::LockKeys &locks);

  private:
    std::map<std::string, quillon::Typist> made_;
};

/// An object is for one thread. Nothing but finish() waits.
class Desk {
  public:
    using Time = quillon::HealedInput::Time;

    struct Setup {
        std::string name;
        quillon::ControlledEndpoint::Setup endpoint;
        quillon::LayoutChoice layout;
        std::string user;
        int level = 0;
        Taking taking = Taking::kApply;
        std::string source;  ///< of pictures, for a person; empty: none
    };

    /// typists and leftover must outlive this; leftover is kept as things are. changed: called when
    /// due() may be earlier than it was.
    Desk(Setup setup, Typists &typists, volatile Leftover &leftover, std::function<void()> changed);
    ~Desk();
    Desk(const Desk &) = delete;
    Desk &operator=(const Desk &) = delete;

    const Setup &setup() const { return setup_; }

    /// A viewer comes. The first one has the input until it leaves. Throws std::runtime_error when
    /// the system has no way to the endpoint.
    void join(Sitter &sitter);
    void leave(Sitter &sitter);
    bool hasInput(const Sitter &sitter) const {
        return !sitters_.empty() && sitters_.front() == &sitter;
    }

    /// Only between join() and leave().
    quillon::HealedInput &input() { return endpoint_->input(); }
    const quillon::EndpointStatus &status() const { return endpoint_->status(); }
    /// The picture has the size of the source's or the endpoint's, and not one of ours.
    bool sizeKnown() const;
    const quillon::Typist &typist();
    const LockState &locks() const { return locks_; }
    /// Open while somebody watches; its source draws there.
    Picture &picture() { return picture_; }
    /// The source of pictures is lost, or could not be had.
    void pictureLost(const std::string &why);
    /// A JPEG of the source to decode for picture().
    std::shared_ptr<const rfb::Jpeg> toDecode();
    bool watched() const { return !sitters_.empty(); }
    /// Something may be to do, such as toDecode().
    void look() { changed_(); }
    /// When a person did something here.
    Time worked() const { return worked_; }

    /// Sends what was put into input() just now.
    void send(Time now);
    /// A lock key went out.
    void lockKeySent(std::uint8_t usage, Time now);
    /// The pointer was sent to a pixel of the surface; none: it is not known where it is.
    void point(const std::optional<std::pair<unsigned, unsigned>> &at);
    /// What happened last, for the picture; a refusal stays until input is taken again.
    void note(const std::string &what);
    void refuse(const std::string &why);

    /// A message for consoles came from this endpoint; ports: to answer it.
    void take(const quillon::LinkMessage &message,
              const quillon::DatagramSocket::Received &datagram, quillon::ConsolePorts &ports);

    /// The sockets to wait for, which change when viewers come and go. See socketsVersion().
    void addTo(std::vector<pollfd> &fds) const;
    unsigned socketsVersion() const { return socketsVersion_; }
    Time due() const;
    void serve(Time now);

    /// Nothing is down at the endpoint, and nothing is to be sent any more.
    bool atRest() const { return endpoint_ == nullptr || endpoint_->atRest(); }
    /// Lets everything go. What is down counts again only after its release.
    void letGo();
    /// The same, and waits a quarter of a second for that.
    void finish();

  private:
    void noteLeftover();
    void followSize();
    void followReach(Time now);
    void followLocks();
    void followHolder(Time now);
    void draw(Time now);
    StatusLines words(Time now);
    std::string pictureWords(const std::optional<quillon::Link> &link) const;
    std::string hint() const;
    std::vector<std::string> cover(Time now);
    std::string trouble() const;
    void tell();

    const Setup setup_;
    Typists &typists_;
    volatile Leftover &leftover_;
    const std::function<void()> changed_;
    std::unique_ptr<quillon::ControlledEndpoint> endpoint_;
    std::optional<ControlKeeper> keeper_;
    std::string ownAddress_;
    unsigned socketsVersion_ = 0;

    std::vector<Sitter *> sitters_;
    LockState locks_;
    Picture picture_;
    std::string lost_, lostAt_;  ///< why the source gives no picture, and since when

    std::string news_, refused_, hint_;
    Time told_{}, hinted_{};  ///< when news_ and hint_ came
    std::string answers_;     ///< how long answers take, in words
    bool took_ = false;       ///< control was taken from here, and not lost as far as is known
    bool dirty_ = true, mine_ = false, reachable_ = false, relative_ = false, sized_ = false;
    std::optional<std::pair<unsigned, unsigned>> pointer_;
    Time drawn_{}, measured_{}, worked_{};
};

}  // namespace gateway
