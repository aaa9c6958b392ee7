// Types a text on the computer behind an endpoint: hello ADDRESS TEXT
#include <poll.h>
#include <protocol/ports.h>
#include <protocol/us_layout.h>
#include <quillon/controlled_endpoint.h>
#include <quillon/session.h>

#include <cstdio>
#include <stdexcept>

int main(int argc, char **argv) try {
    if (argc != 3) throw std::runtime_error("usage: hello ADDRESS TEXT");
    std::vector<quillon::Stroke> strokes;
    std::string error;
    if (!quillon::typeStrokes(argv[2], strokes, error)) throw std::runtime_error(error);

    quillon::Session session(argv[1], quillon::kRecordPort, "", std::chrono::seconds(2));
    const quillon::Link link = session.link();  // throws when the endpoint does not answer
    std::printf("the picture has %d x %d pixels\n", link.width, link.height);

    quillon::ControlledEndpoint::Setup setup;
    setup.to = argv[1];
    quillon::ControlledEndpoint endpoint(setup);
    for (const quillon::Stroke &stroke : strokes) endpoint.input().setKeyboard(stroke);
    while (!endpoint.input().idle()) {
        std::vector<pollfd> fds;
        endpoint.addTo(fds);
        poll(fds.data(), fds.size(), 8);  // milliseconds; records leave no faster by default
        endpoint.serve(std::chrono::steady_clock::now());
    }
    endpoint.finish();  // lets all keys go, more than once
} catch (const std::exception &problem) {
    std::fprintf(stderr, "hello: %s\n", problem.what());
    return 1;
}
