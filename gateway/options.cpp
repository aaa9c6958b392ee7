#include "gateway/options.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "terminal/config_text.h"

namespace gateway {
namespace {

HandedIn handedIn(const std::string &name, int fd) {
    HandedIn socket{name == "web", "", fd};
    constexpr char kViewersOf[] = "viewers-";
    constexpr std::size_t kSize = sizeof kViewersOf - 1;
    if (name.compare(0, kSize, kViewersOf) == 0)
        socket.endpoint = name.substr(kSize);
    else if (!socket.web && name != "viewers")
        throw std::runtime_error("a socket is called web, viewers or viewers-NAME, not " + name);
    int listening = 0;
    socklen_t size = sizeof listening;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) != 0 || listening == 0)
        throw std::runtime_error("descriptor " + std::to_string(fd) + " is no listening socket");
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return socket;
}

// As sd_listen_fds(3) describes it.
void addActivated(std::vector<HandedIn> &sockets) {
    constexpr int kFirst = 3, kMost = 64;
    const char *pid = getenv("LISTEN_PID"), *count = getenv("LISTEN_FDS");
    if (pid == nullptr || count == nullptr || std::to_string(getpid()) != pid) return;
    const char *names = getenv("LISTEN_FDNAMES");
    std::istringstream split(names != nullptr ? names : "");
    const int number = std::clamp(atoi(count), 0, kMost);
    for (int i = 0; i < number; ++i) {
        std::string name;
        std::getline(split, name, ':');
        sockets.push_back(handedIn(name.empty() || name == "unknown" ? "web" : name, kFirst + i));
    }
    for (const char *variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(variable);
}

}  // namespace

void describe(CLI::App &app, Options &options) {
    app.description(
        "Lets viewers of remote screens (RFB, also called VNC) and browsers use "
        "endpoints");
    auto *to = app.add_option("--to", options.to, "Address of the endpoint")
                   ->type_name("ADDRESS")
                   ->check(CLI::ValidIPV4.description(""));
    auto *config = app.add_option("--config", options.configFile,
                                  "Configuration for one or more endpoints, see quillon-gateway(1)")
                       ->type_name("FILE")
                       ->excludes(to);
    app.add_flag("--check", options.check, "Say whether the configuration is right, and end");
    const auto desk = [&](CLI::Option *option) { return option->excludes(config); };
    desk(app.add_option("--from", options.from,
                        "Address of this machine to send from; without it the system chooses"))
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4.description(""));
    desk(app.add_option("--port", options.port, "The endpoint's port for records"))
        ->type_name("N")
        ->check(CLI::Range(1, 65535).description(""))
        ->capture_default_str();
    desk(app.add_option("--layout", options.layout, "Keyboard layout of the computer, e.g. de"))
        ->type_name("LAYOUT")
        ->capture_default_str();
    desk(app.add_option("--variant", options.variant, "Variant of that layout, e.g. nodeadkeys"))
        ->type_name("VARIANT");
    desk(app.add_option("--system", options.system,
                        "What dead keys do on the computer: x11, console or windows"))
        ->type_name("SYSTEM")
        ->check(CLI::IsMember(quillon::kSystemNames).description(""))
        ->capture_default_str();
    desk(app.add_option("--name", options.user,
                        "Name of the user who takes control; without it $USER"))
        ->type_name("USER");
    desk(app.add_option("--level", options.level, "Permission level; a larger one is stronger"))
        ->type_name("N")
        ->capture_default_str();
    desk(app.add_option("--control", options.control,
                        "How control is taken where permissions are on: apply (the holder is "
                        "asked), connect (at once) or never"))
        ->type_name("HOW")
        ->check(CLI::IsMember(kTakingNames).description(""))
        ->capture_default_str();
    auto *listen = desk(app.add_option("--listen", options.listen,
                                       "Take viewers on TCP; needs --password-file"))
                       ->type_name("HOST:PORT");
    auto *password =
        desk(app.add_option("--password-file", options.passwordFile,
                            "File with the password that viewers on TCP have to show; without a "
                            "certificate 8 characters count, and the network can read what is "
                            "typed"))
            ->type_name("FILE");
    listen->needs(password);
    auto *certificate =
        desk(app.add_option("--certificate", options.certificate,
                            "Certificate in PEM: viewers on TCP have to use TLS (X509Plain)"))
            ->type_name("FILE");
    auto *key = desk(app.add_option("--key", options.key, "Key of the certificate, in PEM"))
                    ->type_name("FILE");
    certificate->needs(key);
    key->needs(certificate);
    desk(app.add_option("--user", options.viewerUser,
                        "User name that viewers with TLS have to show beside the password"))
        ->type_name("NAME")
        ->capture_default_str();
    desk(app.add_option("--web-port", options.webPort,
                        "Port for browsers on 127.0.0.1; 0 stands for any that is free"))
        ->type_name("N")
        ->check(CLI::Range(0, 65535).description(""))
        ->capture_default_str();
    auto *picture = desk(app.add_option("--picture", options.picture,
                                        "Where the computer's picture comes from: vnc:unix:PATH, "
                                        "vnc:HOST:PORT, or mjpeg:URL"))
                        ->type_name("SOURCE");
    desk(app.add_option("--picture-user", options.pictureUser, "User for an mjpeg source"))
        ->needs(picture)
        ->type_name("NAME");
    desk(app.add_option("--picture-password-file", options.picturePasswordFile,
                        "File with the password for the source"))
        ->needs(picture)
        ->type_name("FILE");
    desk(app.add_option(
             "--picture-ca", options.pictureCa,
             "File in PEM with the certificate of an https source, or of the authority that "
             "signed it; without it, the authorities that this machine trusts count"))
        ->needs(picture)
        ->type_name("FILE");
    app.add_option("--listen-fd", options.listenFds,
                   "A listening socket that another program opened, by its descriptor: web=N for "
                   "browsers, viewers=N or viewers-NAME=N for viewers; may be given again")
        ->type_name("WHAT=N")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    app.add_option("--web-files", options.webFiles,
                   "Folder with the page for browsers; without it the installed one")
        ->type_name("DIR");
    app.footer("One of --to and --config is needed.");
}

Configuration configurationOf(const Options &options) {
    if (!options.configFile.empty()) {
        const auto text = quillon::readConfigText(options.configFile);
        if (!text) throw std::runtime_error("there is no file " + options.configFile);
        return parseConfiguration(*text, options.configFile);
    }
    if (options.to.empty()) throw CLI::RequiredError("--to or --config");
    Configuration configuration;
    EndpointEntry entry;
    Desk::Setup &desk = entry.desk;
    desk.name = options.to;
    desk.endpoint.to = options.to;
    desk.endpoint.from = options.from;
    desk.endpoint.port = options.port;
    desk.layout = {options.layout, options.variant, quillon::kSystemNames.at(options.system)};
    const char *login = getenv("USER");
    desk.user = !options.user.empty()                ? options.user
                : login != nullptr && *login != '\0' ? login
                                                     : "gateway";
    desk.level = options.level;
    desk.taking = kTakingNames.at(options.control);
    entry.listen = options.listen;
    setPicture(entry, options.picture, options.pictureUser, options.picturePasswordFile,
               options.pictureCa);
    configuration.web = "127.0.0.1:" + std::to_string(options.webPort);
    configuration.certificate = options.certificate;
    configuration.key = options.key;
    configuration.user = options.viewerUser;
    configuration.passwordFile = options.passwordFile;
    configuration.endpoints.push_back(entry);
    if (!entry.listen.empty()) parseHostPort(entry.listen);
    Typists typists;
    check(desk, typists);
    check(configuration);
    return configuration;
}

std::vector<HandedIn> handedIn(const Options &options) {
    std::vector<HandedIn> sockets;
    for (const std::string &text : options.listenFds) {
        const std::size_t equals = text.find('=');
        const std::string number = equals == std::string::npos ? "" : text.substr(equals + 1);
        if (number.empty() || number.size() > 5 ||
            number.find_first_not_of("0123456789") != std::string::npos)
            throw CLI::ValidationError("--listen-fd", "takes WHAT=N, as web=3");
        sockets.push_back(handedIn(text.substr(0, equals), std::stoi(number)));
    }
    addActivated(sockets);
    return sockets;
}

}  // namespace gateway
