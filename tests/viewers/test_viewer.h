// The viewers that people have, behind one interface.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gateway/picture/status_picture.h"
#include "tests/viewers/gateway_program.h"

namespace test {

class TestViewer {
  public:
    virtual ~TestViewer() = default;
    /// Keys by X11's names; text as a person with a German keyboard types it.
    virtual void type(const std::string &text) = 0;
    virtual void key(const std::string &name, bool down) = 0;
    /// Pixels of the computer's picture.
    virtual void move(int x, int y) = 0;
    /// The pointer arrives so many pixels beside the place that it is moved to.
    virtual void correct(int, int) {}
    /// As X11 counts: 1 left, 2 middle, 3 right, 4 and 5 the wheel.
    virtual void button(int number, bool down) = 0;
    virtual gateway::Image image() = 0;
    /// A request of browser.py, for a browser.
    virtual std::string ask(const std::string &) { return {}; }
    /// The process of the viewer; 0: this one.
    virtual pid_t pid() const { return 0; }

    void tap(const std::string &name) {
        key(name, true);
        key(name, false);
    }
    /// True when its picture has these words within 10 s.
    bool shows(const std::string &line);
};

/// kinds: "TigerVNC" (TLS), "gvncviewer" (password), "noVNC" (browser), "libvncclient" (unix
/// socket). Throws std::runtime_error when it does not come to a picture.
std::unique_ptr<TestViewer> openViewer(const std::string &kind, const GatewayProgram &gateway);

/// A browser, with the viewer of the page at an address.
std::unique_ptr<TestViewer> openBrowser(const std::string &address);

/// The options for a gateway that this kind can reach.
std::string optionsFor(const std::string &kind);

}  // namespace test
