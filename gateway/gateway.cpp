#include "gateway/gateway.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "gateway/secrets.h"
#include "protocol/link_messages.h"
#include "terminal/own_folder.h"
#include <quillon/endpoint.h>

// Behind gateway.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;
using Tcp = asio::ip::tcp;

// Of the places for connections that are not through, for one address of the network.
std::size_t shareOf(unsigned places) {
    return std::max(1U, places / 4);
}

}  // namespace

struct Gateway::Seat {
    Seat(Gateway &gateway, const EndpointEntry &entry, std::size_t number)
        : listen(entry.listen),
          desk(entry.desk, gateway.typists_, gateway.leftovers_[number],
               [this, &gateway] { gateway.drive(*this); }),
          driver(gateway.context_, [this, &gateway] { gateway.serve(*this); }) {
        if (entry.picture.kind == SourceAddress::kNone) return;
        source = std::make_shared<SourceLine>(
            gateway.context_, desk, entry.picture, gateway.configuration_.limits.picture,
            [&gateway](const std::string &line) { gateway.report_(line); });
        asio::co_spawn(
            gateway.context_,
            [](std::shared_ptr<SourceLine> line) -> asio::awaitable<void> {
                co_await line->run();
            }(source),
            asio::detached);
    }

    const std::string listen;
    std::shared_ptr<unsigned> viewers = std::make_shared<unsigned>(0);
    unsigned socketsVersion = 0;
    Desk desk;
    PollDriver driver;
    std::shared_ptr<SourceLine> source;  ///< of pictures; null: none
};

struct Gateway::Ports {
    Ports(Gateway &gateway, const std::string &address)
        : consoles(address, quillon::ConsolePorts::kSelf),
          driver(gateway.context_, [this, &gateway] { gateway.servePorts(*this); }) {}

    quillon::ConsolePorts consoles;
    PollDriver driver;
};

Proof readProof(const Configuration &configuration) {
    Proof proof;
    for (const EndpointEntry &entry : configuration.endpoints) {
        const SourceAddress &picture = entry.picture;
        if (!picture.passwordFile.empty()) readPassword(picture.passwordFile);
        boost::system::error_code error;
        if (!picture.authority.empty())
            asio::ssl::context(asio::ssl::context::tls_client)
                .load_verify_file(picture.authority, error);
        if (error) throw std::runtime_error(picture.authority + " has no certificate in PEM");
    }
    if (configuration.passwordFile.empty()) return proof;
    const bool tls = !configuration.certificate.empty();
    try {
        proof.credentials = {tls ? rfb::Credentials::kPlain : rfb::Credentials::kPassword,
                             configuration.user, readPassword(configuration.passwordFile)};
        if (tls)
            proof.certificate =
                std::make_unique<Certificate>(configuration.certificate, configuration.key);
    } catch (const std::runtime_error &error) {
        if (configuration.where.empty()) throw;
        throw std::runtime_error(configuration.where + ": " + error.what());
    }
    return proof;
}

Gateway::Gateway(asio::io_context &context, Configuration configuration, WebFiles files,
                 const std::vector<HandedIn> &sockets, volatile Leftover *leftovers,
                 Reporter &report)
    : context_(context),
      configuration_(std::move(configuration)),
      leftovers_(leftovers),
      report_(report),
      proof_(readProof(configuration_)),
      tcpRoom_(configuration_.limits.unfinished, shareOf(configuration_.limits.unfinished)),
      unixRoom_(configuration_.limits.unfinished, configuration_.limits.unfinished),
      webRoom_(configuration_.limits.unfinished, configuration_.limits.unfinished),
      portsRetry_(context) {
    for (const EndpointEntry &entry : configuration_.endpoints)
        seats_.push_back(std::make_unique<Seat>(*this, entry, seats_.size()));
    openPorts();
    openBrowsers(std::move(files), sockets);
    openViewers(sockets);
}

Gateway::~Gateway() = default;

Gateway::Seat &Gateway::seat(const std::string &name) {
    if (name.empty() && seats_.size() == 1) return *seats_.front();
    for (const auto &seat : seats_)
        if (seat->desk.setup().name == name) return *seat;
    throw std::runtime_error(name.empty() ? "a socket for viewers needs the name of an endpoint"
                                          : "there is no endpoint " + name);
}

// Heartbeats come to the address from which records go out.
void Gateway::openPortsFor(const Desk::Setup &setup) {
    const auto &to = setup.endpoint;
    const std::string own = quillon::Endpoint(to.to, to.port, to.from).ownAddress();
    if (ports_.count(own) != 0) return;
    try {
        auto ports = std::make_unique<Ports>(*this, own);
        std::vector<pollfd> fds;
        ports->consoles.addTo(fds);
        ports->driver.watch(fds);
        servePorts(*ports);
        ports_.emplace(own, std::move(ports));
    } catch (const std::system_error &error) {
        if (error.code().value() != EADDRINUSE) throw;
        throw std::runtime_error(
            "another program at " + own +
            " answers the endpoints (a gateway, or \"quillon-console watch\"); end it, or send "
            "from another address of this machine (--from)");
    }
}

// Where it does not work for one of several endpoints, as before a network is up, it is tried
// again.
void Gateway::openPorts() {
    constexpr std::chrono::seconds kRetry(5);
    std::string trouble;
    for (const auto &seat : seats_) try {
            openPortsFor(seat->desk.setup());
        } catch (const std::runtime_error &error) {
            if (seats_.size() == 1) throw;
            trouble = seat->desk.setup().name + ": " + error.what();
        }
    if (trouble != portsTrouble_ && !trouble.empty()) report_.tell(trouble);
    portsTrouble_ = trouble;
    if (trouble.empty()) return;
    portsRetry_.expires_after(kRetry);
    portsRetry_.async_wait([this](const boost::system::error_code &error) {
        if (!error && !ending_) openPorts();
    });
}

void Gateway::openUnixSocket(Seat &seat, const std::string &folder) {
    socketFiles_.push_back(
        std::make_unique<SocketFile>(folder + "/" + seat.desk.setup().name + ".sock"));
    listeners_.push_back(
        std::make_unique<Listener>(context_, socketFiles_.back()->fd(),
                                   [this, &seat](int viewer) { takeViewer(seat, viewer); }));
    report_.tell("Viewers of " + seat.desk.setup().name +
                 " on this machine: " + socketFiles_.back()->path());
}

void Gateway::listenForViewers(Seat &seat, int fd) {
    // A unix socket is as good as a password where its file keeps others out.
    if (isUnixSocket(fd)) {
        if (othersMayConnect(fd))
            throw std::runtime_error(
                "everybody on this machine could use that socket (systemd: SocketMode=0600)");
    } else {
        if (proof_.credentials.kind == rfb::Credentials::kNone)
            throw std::runtime_error("viewers on TCP need a password file");
        report_.tell("Viewers of " + seat.desk.setup().name + ": " + ownEnd(fd).name() +
                     (proof_.credentials.kind == rfb::Credentials::kPlain
                          ? ", by TLS with user name and password (X509Plain)"
                          : ", with a password, on an open line"));
    }
    listeners_.push_back(std::make_unique<Listener>(
        context_, fd, [this, &seat](int viewer) { takeViewer(seat, viewer); }));
}

void Gateway::openViewers(const std::vector<HandedIn> &sockets) {
    std::string folder = configuration_.socketFolder;
    if (folder.empty())
        folder = quillon::ownFolder("quillon-gateway");
    else
        quillon::makeOwnFolder(folder);
    for (const auto &seat : seats_) {
        openUnixSocket(*seat, folder);
        if (!seat->listen.empty()) listenForViewers(*seat, listenOnTcp(seat->listen));
    }
    for (const HandedIn &socket : sockets)
        if (!socket.web) listenForViewers(seat(socket.endpoint), socket.fd);
}

void Gateway::openBrowsers(WebFiles files, const std::vector<HandedIn> &sockets) {
    int fd = -1;
    for (const HandedIn &socket : sockets)
        if (socket.web) {
            if (fd >= 0) throw std::runtime_error("there is one socket for browsers");
            fd = socket.fd;
        }
    if (fd < 0 && configuration_.web.empty()) return;
    if (fd < 0) fd = listenOnTcp(configuration_.web);
    const End end = ownEnd(fd);
    if (end.host.compare(0, 4, "127.") != 0)
        throw std::runtime_error("browsers are served on loopback alone, as 127.0.0.1:8080");
    std::vector<std::string> names;
    for (const auto &seat : seats_) names.push_back(seat->desk.setup().name);
    door_ = std::make_unique<WebDoor>(end.host, end.port, std::move(files), std::move(names));
    listeners_.push_back(
        std::make_unique<Listener>(context_, fd, [this](int browser) { takeBrowser(browser); }));
    printAddress();
}

void Gateway::printAddress() {
    report_.tell("Browsers on this machine, once: " + door_->address());
}

// ---- desks and console ports

void Gateway::drive(Seat &seat) {
    if (ending_) return;
    constexpr std::chrono::seconds kRetry(1);
    auto due = seat.desk.due();
    if (seat.desk.socketsVersion() != seat.socketsVersion) try {
            std::vector<pollfd> fds;
            seat.desk.addTo(fds);
            seat.driver.watch(fds);
            seat.socketsVersion = seat.desk.socketsVersion();
        } catch (const std::system_error &error) {
            // Answers come late until the process has descriptors again.
            report_(error.what());
            due = std::min(due, Clock::now() + kRetry);
        }
    seat.driver.callAt(due);
    if (!seat.source) return;
    seat.source->look();
    decode(seat);
}

void Gateway::decode(Seat &seat) {
    auto jpeg = seat.desk.toDecode();
    if (!jpeg) return;
    asio::post(decoders_, [this, &seat, jpeg = std::move(jpeg)] {
        std::vector<Pixel> pixels;
        try {
            pixels = rfb::decodedJpeg(*jpeg);
        } catch (const std::exception &) {
            // Viewers that take JPEGs have it; the others wait for the next one.
        }
        asio::post(context_, [&seat, jpeg, pixels = std::move(pixels)] {
            seat.desk.picture().decoded(jpeg, pixels);
        });
    });
}

void Gateway::serve(Seat &seat) {
    seat.desk.serve(Clock::now());
    drive(seat);
}

void Gateway::servePorts(Ports &ports) {
    constexpr std::chrono::seconds kTick(1);
    ports.consoles.serve([&](const quillon::DatagramSocket::Received &datagram) {
        const auto message = quillon::parseLinkMessage(datagram.text);
        if (!message) return;
        for (const auto &seat : seats_)
            if (seat->desk.setup().endpoint.to == datagram.sender) {
                seat->desk.take(*message, datagram, ports.consoles);
                drive(*seat);
            }
    });
    ports.driver.callAt(Clock::now() + kTick);
}

// ---- viewers and browsers

// Longer, the more were wrong in the last minute.
std::chrono::milliseconds Gateway::afterWrongPassword() {
    constexpr std::chrono::milliseconds kFirst(1000), kEach(100), kLongest(10000);
    const auto now = Clock::now();
    if (now - lastWrong_ > std::chrono::minutes(1)) wrongPasswords_ = 0;
    lastWrong_ = now;
    return std::min(kLongest, kFirst + kEach * wrongPasswords_++);
}

asio::awaitable<void> Gateway::runViewer(std::unique_ptr<Stream> stream, Arrival arrival) {
    // These counts may end after the gateway, with the context.
    struct Admission {
        std::shared_ptr<unsigned> all, here;
        bool admitted = false;
        ~Admission() {
            if (!admitted) return;
            --*all;
            --*here;
        }
    };
    const auto admission = std::make_shared<Admission>(Admission{viewers_, arrival.seat.viewers});
    // A connection has a place in the waiting room until it is through.
    const auto ticket = std::make_shared<std::shared_ptr<WaitingRoom::Ticket>>();
    ViewerLine::Host host{
        arrival.seat.desk,
        configuration_.limits,
        arrival.credentials,
        proof_.certificate
            ? proof_.certificate->current([this](const std::string &line) { report_(line); })
            : nullptr,
        arrival.name,
        [this, admission, ticket] {
            ticket->reset();
            const Limits &limits = configuration_.limits;
            if (ending_ || *admission->all >= limits.viewers ||
                *admission->here >= limits.viewersOfEndpoint)
                return false;
            ++*admission->all;
            ++*admission->here;
            admission->admitted = true;
            return true;
        },
        [this] { return afterWrongPassword(); },
        [this](const std::string &line) { report_(line); }};
    const auto line =
        std::make_shared<ViewerLine>(context_.get_executor(), std::move(stream), std::move(host));
    *ticket = arrival.room.enter(arrival.from.host, [known = std::weak_ptr(line)] {
        if (const auto waiting = known.lock()) waiting->end();
    });
    lines_.remove_if([](const auto &known) { return known.expired(); });
    lines_.push_back(line);
    co_await line->run();
    ticket->reset();
}

void Gateway::takeViewer(Seat &seat, int fd) {
    const bool local = isUnixSocket(fd);
    const End from = otherEnd(fd);
    asio::generic::stream_protocol::socket socket(context_);
    boost::system::error_code error;
    socket.assign(asio::generic::stream_protocol(local ? AF_UNIX : AF_INET, 0), fd, error);
    if (error) close(fd);
    if (error || ending_) return;
    asio::co_spawn(context_,
                   runViewer(socketStream(std::move(socket)),
                             {seat, local ? rfb::Credentials{} : proof_.credentials,
                              local ? unixRoom_ : tcpRoom_, from, from.name()}),
                   asio::detached);
}

void Gateway::takeBrowser(int fd) {
    const End from = otherEnd(fd);
    const auto socket = std::make_shared<Tcp::socket>(context_);
    boost::system::error_code error;
    socket->assign(Tcp::v4(), fd, error);
    if (error) close(fd);
    if (error || ending_) return;
    browsers_.remove_if([](const auto &known) { return known.expired(); });
    browsers_.push_back(socket);
    const auto ticket = std::make_shared<std::shared_ptr<WaitingRoom::Ticket>>(
        webRoom_.enter(from.host, [known = std::weak_ptr(socket)] {
            boost::system::error_code ignored;
            if (const auto waiting = known.lock()) waiting->close(ignored);
        }));
    const auto run = [this, from, ticket](std::unique_ptr<Stream> stream,
                                          const std::string &endpoint) {
        ticket->reset();
        return runViewer(std::move(stream),
                         {seat(endpoint), {}, webRoom_, from, "a browser at " + from.name()});
    };
    asio::co_spawn(context_,
                   serveBrowser(socket, *door_, configuration_.limits.handshake, run,
                                [this] { printAddress(); }),
                   [ticket](const std::exception_ptr &) { ticket->reset(); });
}

// ---- the end

void Gateway::letGo() {
    std::vector<std::thread> farewells;
    for (const auto &seat : seats_) {
        seat->desk.letGo();
        if (!seat->desk.atRest()) farewells.emplace_back([&desk = seat->desk] { desk.finish(); });
    }
    for (std::thread &farewell : farewells) farewell.join();
    for (const auto &seat : seats_) drive(*seat);
}

void Gateway::end() {
    ending_ = true;
    listeners_.clear();
    for (const auto &known : lines_)
        if (const auto line = known.lock()) line->end();
    for (const auto &known : browsers_) {
        boost::system::error_code ignored;
        if (const auto browser = known.lock()) browser->close(ignored);
    }
    letGo();
    for (const auto &seat : seats_) seat->driver.stop();
    for (const auto &[address, ports] : ports_) ports->driver.stop();
    portsRetry_.cancel();
    for (const auto &seat : seats_)
        if (seat->source) seat->source->end();
}

}  // namespace gateway
