// quillon-gateway: endpoints for the viewers of remote screens, and for browsers.

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <thread>

#include "gateway/gateway.h"
#include "terminal/own_folder.h"
#include "terminal/program.h"
#include <quillon/guardian.h>

// Behind gateway.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/signal_set.hpp>

namespace gateway {
namespace {

// Beside this program, or where an installation has it.
std::string folderOfPage(const Options &options) {
    if (!options.webFiles.empty()) return options.webFiles;
    for (const char *place : {"gateway/page", "../share/quillon/page"}) {
        const std::string folder = quillon::besideThisProgram(place);
        if (access((folder + "/index.html").c_str(), R_OK) == 0) return folder;
    }
    throw std::runtime_error("the page for browsers is not installed; see --web-files");
}

// A viewer takes one descriptor and an endpoint with viewers twelve.
void takeAllDescriptors() {
    constexpr rlim_t kWanted = 65536;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, kWanted));
    setrlimit(RLIMIT_NOFILE, &limit);
}

// What is left to do when this process is killed.
void letGo(const Desk::Setup &setup, const volatile Leftover &leftover) {
    try {
        quillon::ControlledEndpoint endpoint(setup.endpoint);
        endpoint.input().setRelative(leftover.relative);
        if (leftover.placed) endpoint.input().moveTo(leftover.x, leftover.y);
        endpoint.finish();
    } catch (const std::runtime_error &) {
        return;  // there is nobody to tell
    }
}

void letGo(const std::vector<EndpointEntry> &endpoints, const volatile Leftover *leftovers) {
    std::vector<std::thread> farewells;
    for (std::size_t i = 0; i < endpoints.size(); ++i)
        if (leftovers[i].restless)
            farewells.emplace_back(
                [&endpoints, leftovers, i] { letGo(endpoints[i].desk, leftovers[i]); });
    for (std::thread &farewell : farewells) farewell.join();
}

int run(const Options &options) {
    const Configuration configuration = configurationOf(options);
    const std::vector<HandedIn> sockets = handedIn(options);
    Reporter report;
    if (options.check) {
        readProof(configuration);
        printf("The configuration is right.\n");
        return 0;
    }
    const bool browsers = !configuration.web.empty() ||
                          std::any_of(sockets.begin(), sockets.end(),
                                      [](const HandedIn &socket) { return socket.web; });
    WebFiles files;
    if (browsers) files = WebFiles(folderOfPage(options));
    const std::size_t size = configuration.endpoints.size() * sizeof(Leftover);
    void *shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::runtime_error("there is no memory");
    volatile auto *leftovers = static_cast<Leftover *>(shared);
    takeAllDescriptors();
    signal(SIGPIPE, SIG_IGN);
    const quillon::Guardian guardian([&] { letGo(configuration.endpoints, leftovers); });
    asio::io_context context(1);
    Gateway gateway(context, configuration, std::move(files), sockets, leftovers, report);
    asio::signal_set signals(context, SIGINT, SIGTERM, SIGHUP), stops(context, SIGTSTP);
    bool ended = false;
    signals.async_wait([&](const boost::system::error_code &, int) {
        ended = true;
        gateway.end();
        stops.cancel();
    });
    // Ctrl-Z: nobody can let go what is down while this process stands still.
    std::function<void()> awaitStop = [&] {
        stops.async_wait([&](const boost::system::error_code &error, int) {
            if (error) return;
            gateway.letGo();
            raise(SIGSTOP);
            awaitStop();
        });
    };
    awaitStop();
    report.tell("Ctrl-C ends the gateway.");
    try {
        context.run();
    } catch (const std::exception &error) {
        const std::string why = error.what();
        gateway.end();
        context.run_for(std::chrono::seconds(1));
        throw std::runtime_error("the gateway had to end: " + why);
    }
    if (!ended) throw std::runtime_error("the gateway had nothing to do any more");
    return 0;
}

}  // namespace
}  // namespace gateway

int main(int argc, char **argv) {
    CLI::App app{"", "quillon-gateway"};
    gateway::Options options;
    gateway::describe(app, options);
    return quillon::runProgram(app, argc, argv, [&] { return gateway::run(options); });
}
