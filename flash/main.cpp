// quillon-flash: programs an S-record file into the boards behind the microcontroller.

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "flash/options.h"
#include "flash/progress.h"
#include "flash/result.h"
#include "flash/serial_holder.h"
#include "flash/srecord.h"
#include "flash/stage.h"
#include "software_config.h"
#include "terminal/printable.h"
#include "terminal/standard_streams.h"

namespace {

namespace fs = std::filesystem;
using flash::Options, flash::kUsualFolder;
using quillon::printable;

constexpr char kProgram[] = "quillon-flash";

volatile std::sig_atomic_t interrupted = 0;

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (fs::is_directory(path)) throw std::runtime_error(path + " is a folder");
    if (!file) throw std::runtime_error("cannot read " + path + ": " + strerror(errno));
    return {std::istreambuf_iterator<char>(file), {}};
}

// uploadFile decides by the name; one with ".rar" and without ".mot" restarts the device.
void checkName(const std::string &path) {
    const std::string name = fs::path(path).filename();
    if (name.find(".mot") == std::string::npos && name.find(".Mot") == std::string::npos)
        throw std::runtime_error(path + " is no .mot file");
}

flash::Image check(const std::string &path, const std::string &text) {
    try {
        return flash::readImage(text);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

void enterFolder(const std::string &wanted) {
    std::string folder = wanted;
    if (folder.empty()) folder = fs::exists("quillon.ini") ? "." : kUsualFolder;
    if (!fs::exists(fs::path(folder) / "quillon.ini"))
        throw std::runtime_error("no quillon.ini in " + folder + " (see --config)");
    fs::current_path(folder);
}

std::string checkDevice() {
    read_ini settings("./quillon.ini");
    std::string port = "COM3";
    settings.find_value("com_port=", port);
    std::string device = flash::deviceOf(port);
    if (device.empty())
        throw std::runtime_error("com_port in quillon.ini is \"" + port + "\", not COM0 to COM3");
    if (const std::string holder = flash::holderOf(device); !holder.empty())
        throw std::runtime_error(holder + " has " + device + "; end it first");
    if (access(device.c_str(), R_OK | W_OK) != 0)
        throw std::runtime_error("cannot open " + device + ": " + strerror(errno));
    return device;
}

void askWhether(const Options &options, const flash::Image &image, const std::string &device) {
    printf("%s: kind %c, %u records, %u bytes, 0x%06x to 0x%06x; through %s\n",
           printable(options.file).c_str(), image.kind, image.records, image.bytes, image.first,
           image.last, device.c_str());
    fflush(stdout);
    if (options.yes) return;
    if (isatty(STDIN_FILENO) == 0) throw std::runtime_error("nobody to ask: give --yes");
    fprintf(stderr, "Erase the boards and program them? [y/n] ");
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "yes") throw std::runtime_error("nothing was programmed");
}

// A copy of the user's file, under a plain name, because the upload deletes the file it sends.
class TemporaryCopy {
  public:
    explicit TemporaryCopy(const std::string &text)
        : folder_(fs::temp_directory_path() / "quillon-flash.XXXXXX") {
        if (mkdtemp(folder_.data()) == nullptr)
            throw std::runtime_error("cannot make " + folder_ + ": " + strerror(errno));
        std::ofstream copy(path(), std::ios::binary);
        copy << text << std::flush;
        if (copy) return;
        fs::remove_all(folder_);
        throw std::runtime_error("cannot write to " + folder_);
    }
    ~TemporaryCopy() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    TemporaryCopy(const TemporaryCopy &) = delete;
    TemporaryCopy &operator=(const TemporaryCopy &) = delete;

    std::string path() const { return folder_ + "/upload.mot"; }

  private:
    std::string folder_;
};

// False when a signal interrupted it.
bool follow(const flash::Stage &stage, flash::Progress &progress) {
    std::string line;
    char chunk[4096];
    for (;;) {
        const ssize_t n = read(stage.log(), chunk, sizeof chunk);
        if (interrupted != 0) return false;
        if (n <= 0) return true;
        for (ssize_t i = 0; i < n; ++i) {
            if (chunk[i] != '\n') {
                line += chunk[i];
                continue;
            }
            progress.take(line);
            line.clear();
        }
    }
}

int program(const flash::Image &image, const std::string &text) {
    const TemporaryCopy copy(text);
    const flash::ResultQueue queue;
    flash::Progress progress(image.records, isatty(STDOUT_FILENO) != 0);
    std::string ended;
    {
        flash::Stage stage(copy.path());
        if (follow(stage, progress)) ended = stage.end();
    }
    const std::string reply = queue.receive();
    const bool good = !reply.empty() && flash::printResult(reply);
    for (const std::string &line : progress.unfinished()) fprintf(stderr, "%s\n", line.c_str());
    if (!reply.empty()) return good ? 0 : 1;

    if (ended.empty())
        fprintf(stderr, "quillon-flash: interrupted");
    else
        fprintf(stderr, "quillon-flash: the upload ended with %s and these words: %s",
                ended.c_str(), printable(progress.lastWords()).c_str());
    fprintf(stderr,
            "\nboards that are done: %s; all others that are not named are as they were; "
            "none was restarted\n",
            progress.done().c_str());
    return ended.empty() ? 130 : 1;
}

void handleSignals() {
    struct sigaction stop {
    }, before{};
    stop.sa_handler = [](int) { interrupted = 1; };
    for (const int sig : {SIGINT, SIGQUIT, SIGTERM}) sigaction(sig, &stop, nullptr);
    sigaction(SIGHUP, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(SIGHUP, &stop, nullptr);  // not under nohup
    signal(SIGPIPE, SIG_IGN);  // a closed output must not leave a board half programmed
}

int run(const Options &options) {
    checkName(options.file);
    const std::string text = readFile(options.file);
    const flash::Image image = check(options.file, text);
    enterFolder(options.folder);
    const std::string device = checkDevice();
    askWhether(options, image, device);
    if (interrupted != 0) return 130;
    checkDevice();  // somebody may have taken it while the question stood
    return program(image, text);
}

int runProgram(int argc, char **argv) {
    CLI::App app{"", kProgram};
    app.set_version_flag("--version", kProgram + std::string(" " QUILLON_VERSION));
    Options options;
    flash::describe(app, options);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return kProgram + (": " + printable(error.what())) + " (--help says more)\n";
    });
    try {
        app.parse(argc, argv);
        return run(options);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception &error) {
        fprintf(stderr, "%s: %s\n", kProgram, printable(error.what()).c_str());
        return interrupted != 0 ? 130 : 1;
    }
}

}  // namespace

int main(int argc, char **argv) {
    quillon::holdStandardStreams();
    handleSignals();
    const int status = runProgram(argc, argv);
    return quillon::finishOutput(kProgram) || status != 0 ? status : 1;
}
