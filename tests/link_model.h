// The rules of who controls an endpoint, written down a second time and in another way, to hold
// the daemon against.
#pragma once

#include <array>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace test {

struct LinkModel {
    static constexpr char kEndpoint[] = "192.168.1.10";

    std::string holder;
    int level = 0;
    std::vector<std::string> outputs;
    // As the settings file keeps it.
    std::string savedName;
    int savedLevel = 0;
    std::array<std::string, 8> savedOutputs;

    /// What the consoles hear of a command, as ConsoleEars writes it down, the questions for
    /// consent included; answer is the code that the holder gives to those, -1 for a text that is
    /// none, 2 for no answer.
    std::vector<std::string> connect(const std::string &name, const std::string &ip, int wanted);
    std::vector<std::string> apply(const std::string &name, const std::string &ip, int wanted,
                                   int answer);
    std::vector<std::string> disconnect(const std::string &name);
    /// Would "apply" ask the holder?
    bool asks(const std::string &name, int wanted) const {
        return !outputs.empty() && name != holder && level >= wanted;
    }
    /// A new process, with the table of the settings.
    void restart();

    /// Name, level and the eight slots, joined by bars.
    std::string table() const;
    /// The lines of the settings file that keep it.
    std::string settings() const;

  private:
    void store(bool withName);
    std::vector<std::string> takeOver(const std::string &name, const std::string &ip, int wanted);
};

/// A command, what the holder says if it asks him (none: nothing), and what the consoles hear.
struct LinkStep {
    std::string command;
    std::optional<std::string> answer;
    std::vector<std::string> heard;
};

/// A command by chance, carried out on the model. Users and outputs are at 192.168.1.20 to 28. One
/// in 25 of those that ask the holder is taken, for they take long; the codes of the answers are
/// picked from answers: -1 for no reply, 0, 1, 2 for silence, 3 and 4 for
/// replies without one of these codes.
LinkStep randomStep(LinkModel &model, std::mt19937 &random, const std::vector<int> &answers);

}  // namespace test
