// The gateway: desks, console ports, listeners.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "gateway/certificate.h"
#include "gateway/listener.h"
#include "gateway/options.h"
#include "gateway/poll_driver.h"
#include "gateway/reporter.h"
#include "gateway/source_line.h"
#include "gateway/viewer_line.h"
#include "gateway/waiting_room.h"
#include "gateway/web/web_server.h"
#include <quillon/console_ports.h>

// Behind the others, for Boost 1.74 needs <utility> before it.
#include <boost/asio/thread_pool.hpp>

namespace gateway {

/// What viewers on TCP have to show, and the certificate for them; null without one.
struct Proof {
    rfb::Credentials credentials;
    std::unique_ptr<Certificate> certificate;
};
/// Reads the files that a configuration names. Throws std::runtime_error with file and reason.
Proof readProof(const Configuration &configuration);

/// For one thread, the one that runs the context.
class Gateway {
  public:
    /// Opens all sockets. leftovers: one for each endpoint, in memory that another process shares,
    /// which reads it when this one has ended. Throws std::runtime_error when something cannot be
    /// had.
    Gateway(asio::io_context &context, Configuration configuration, WebFiles files,
            const std::vector<HandedIn> &sockets, volatile Leftover *leftovers, Reporter &report);
    ~Gateway();
    Gateway(const Gateway &) = delete;
    Gateway &operator=(const Gateway &) = delete;

    /// Lets go what is down, and waits a quarter of a second for that. What is down counts again
    /// only after its release.
    void letGo();
    /// Sends everybody away, lets go what is down, and leaves the context without work.
    void end();

  private:
    struct Seat;
    struct Ports;
    /// A viewer that came in, and what it has to show.
    struct Arrival {
        Seat &seat;
        rfb::Credentials credentials;
        WaitingRoom &room;
        End from;
        std::string name;  ///< where it comes from, for a person
    };

    Seat &seat(const std::string &name);
    void openPortsFor(const Desk::Setup &setup);
    void openPorts();
    void openViewers(const std::vector<HandedIn> &sockets);
    void openUnixSocket(Seat &seat, const std::string &folder);
    void listenForViewers(Seat &seat, int fd);
    void openBrowsers(WebFiles files, const std::vector<HandedIn> &sockets);
    void printAddress();

    void drive(Seat &seat);
    void decode(Seat &seat);
    void serve(Seat &seat);
    void servePorts(Ports &ports);
    std::chrono::milliseconds afterWrongPassword();

    void takeViewer(Seat &seat, int fd);
    void takeBrowser(int fd);
    asio::awaitable<void> runViewer(std::unique_ptr<Stream> stream, Arrival arrival);

    asio::io_context &context_;
    const Configuration configuration_;
    volatile Leftover *const leftovers_;
    Reporter &report_;
    const Proof proof_;
    Typists typists_;
    /// Who is on TCP, on this machine, and a browser; none keeps the others out.
    WaitingRoom tcpRoom_, unixRoom_, webRoom_;
    std::vector<std::unique_ptr<Seat>> seats_;
    std::map<std::string, std::unique_ptr<Ports>> ports_;
    asio::steady_timer portsRetry_;
    std::string portsTrouble_;
    std::vector<std::unique_ptr<SocketFile>> socketFiles_;
    std::unique_ptr<WebDoor> door_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    std::list<std::weak_ptr<ViewerLine>> lines_;
    std::list<std::weak_ptr<asio::ip::tcp::socket>> browsers_;
    std::shared_ptr<unsigned> viewers_ = std::make_shared<unsigned>(0);
    unsigned wrongPasswords_ = 0;
    Desk::Time lastWrong_{};
    bool ending_ = false;
    /// Decodes JPEGs, for that takes longer than a key may wait. Ends before what it works for.
    asio::thread_pool decoders_{1};
};

}  // namespace gateway
