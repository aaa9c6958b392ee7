#include "service/fence/rules.h"

#include <cstdio>
#include <iterator>

#include "protocol/ports.h"
#include "protocol/requests.h"

namespace service {
namespace {

using namespace std::string_literals;

constexpr unsigned kUdpHeader = 8, kLongestCommand = 80;

// What a console sends at most is 125 records a second, see --interval of quillon-console.
constexpr char kRecordRate[] = "over 500/second burst 250 packets";
constexpr char kCommandRate[] = "over 10/second burst 20 packets";
// One "apply" can keep operators waiting for 10 s.
constexpr char kControlRate[] = "over 6/minute burst 10 packets";
constexpr char kAnswerRate[] = "over 5/second burst 20 packets";

std::string hex(const std::string &bytes) {
    std::string text = "0x";
    char digits[3];
    for (const char byte : bytes) {
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

// The bytes of a datagram from an offset on. The kernel compares 16 at a time.
std::string at(std::size_t offset, const std::string &bytes) {
    constexpr std::size_t kAtOnce = 16;
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += kAtOnce) {
        const std::string part = bytes.substr(i, kAtOnce);
        text += (i == 0 ? "" : " ") + ("@th," + std::to_string(8 * (kUdpHeader + offset + i)));
        text += "," + std::to_string(8 * part.size()) + " " + hex(part);
    }
    return text;
}

std::string length(std::size_t size) {
    return "udp length " + std::to_string(kUdpHeader + size) + " ";
}

std::string upTo(std::size_t least, std::size_t most) {
    return "udp length " + std::to_string(kUdpHeader + least) + "-" +
           std::to_string(kUdpHeader + most) + " ";
}

std::string exactly(const std::string &text) {
    return length(text.size()) + at(0, text);
}

// A text that begins so, and has one byte more at least.
std::string beginning(const std::string &text) {
    return upTo(text.size() + 1, kLongestCommand) + at(0, text);
}

// The three records. The third byte is checked, too: it keeps "software=" out, which the daemon
// finds anywhere in a datagram, and the CH9350's own commands.
struct Record {
    std::size_t size;
    std::string head;
};
const Record kRecords[] = {{11, "\x57\xAB\x01"s}, {10, "\x57\xAB\x04\x01"s}, {7, "\x57\xAB\x02"s}};

std::string set(const std::string &name, const std::vector<std::string> &addresses) {
    std::string text = "\tset " + name +
                       " {\n\t\ttype ipv4_addr\n\t\tflags interval\n"
                       "\t\tauto-merge\n";
    if (!addresses.empty()) {
        text += "\t\telements = { ";
        for (const std::string &address : addresses)
            text += (&address == &addresses.front() ? "" : ", ") + address;
        text += " }\n";
    }
    return text + "\t}\n";
}

// Remembers how often a source sent; one set for each kind of datagram.
std::string meter(const std::string &name) {
    return "\tset " + name +
           " {\n\t\ttype ipv4_addr\n\t\tsize 65535\n\t\tflags dynamic,timeout\n"
           "\t\ttimeout 2m\n\t}\n";
}

class Chain {
  public:
    explicit Chain(const std::string &name) : text_("\tchain " + name + " {\n") {}
    Chain &rule(const std::string &words) {
        text_ += "\t\t" + words + "\n";
        return *this;
    }
    /// Lets what matches in, unless its source sends too often.
    Chain &allow(const std::string &match) { return rule(match + " goto " + passing_); }
    Chain &allowAs(const std::string &passing) {
        passing_ = passing;
        return *this;
    }
    std::string end() { return text_ + "\t}\n"; }

  private:
    std::string text_, passing_;
};

std::string passing(const std::string &name, const std::string &rate, const std::string &counter) {
    return Chain("pass_" + name)
        .rule("update @sent_" + name + " { ip saddr limit rate " + rate + " }" +
              " counter name too_fast drop")
        .rule("counter name " + counter + " accept")
        .end();
}

std::string recordChain() {
    Chain chain("records");
    chain.allowAs("pass_software");
    // The tag makes the endpoint take a record from everybody, but not a movement of 7 bytes.
    const std::string tag = quillon::kSoftwareTag;
    for (const Record &record : kRecords)
        if (record.size != 7)
            chain.allow("ip saddr @software " + length(tag.size() + record.size) + at(0, tag) +
                        " " + at(tag.size(), record.head));
    chain.rule("ip saddr != @consoles counter name stranger drop");
    // All keys up: it has a measure of its own, so that a fast mouse does not leave a key down.
    chain.allowAs("pass_release");
    chain.allow(length(11) + at(0, "\x57\xAB\x01"s + std::string(8, '\0')));
    chain.allowAs("pass_record");
    for (const Record &record : kRecords) chain.allow(length(record.size) + at(0, record.head));
    // A question for the lock keys keeps records off the line for 190 ms.
    chain.allowAs("pass_question");
    for (const char *word :
         {"capslock", "numlock", quillon::kLockKeysQuestion, quillon::kLinkQuestion,
          "out=on&num=on", "out=on&num=off", "out=off&num=on", "out=off&num=off"})
        chain.allow(exactly(word));
    chain.rule("counter name odd_record drop");
    return chain.end();
}

std::string commandChain() {
    Chain chain("commands");
    chain.rule("ip saddr != @operators counter name stranger drop");
    chain.allowAs("pass_command");
    for (const char *word :
         {quillon::kHolderQuestion, quillon::kSettingsQuestion, "chip=rel", "chip=abs",
          "per_enable=0", "per_enable=1", "kUsbPower=0", "kUsbPower=1"})
        chain.allow(exactly(word));
    chain.allow(beginning(quillon::kSettingsQuestion + ":"s));
    chain.allowAs("pass_control");
    for (const char *word : {"connect|", "apply|", "disconnect|"}) chain.allow(beginning(word));
    const std::string test = "[seq]\n[controlled]=";
    chain.allow(upTo(test.size() + 1, 128) + at(0, test));
    chain.rule("counter name odd_command drop");
    return chain.end();
}

std::string answerChain(const std::string &name, const std::string &match) {
    return Chain(name)
        .rule("ip saddr != @consoles counter name stranger drop")
        .allowAs("pass_answer")
        .allow(match)
        .rule("counter name odd_answer drop")
        .end();
}

}  // namespace

const FenceReason kFenceReasons[] = {
    {"records", "records of consoles let in"},
    {"software_records", "records of software let in"},
    {"questions", "questions and lock keys of consoles let in"},
    {"commands", "commands of operators let in"},
    {"answers", "consent and heartbeats let in"},
    {"stranger", "turned away: the sender is not in the list"},
    {"odd_record", "turned away: neither a record nor a known question"},
    {"odd_command", "turned away: no known command"},
    {"odd_answer", "turned away: neither consent nor a heartbeat"},
    {"too_fast", "turned away: the sender sends too often"},
    {"other_interface", "turned away: not on the interface of the list"},
    {"closed_port", "turned away: sent to the port that only announces"},
};
const std::size_t kFenceReasonCount = std::size(kFenceReasons);

std::string fenceRules(const FenceList &list) {
    const std::string ports = std::to_string(list.recordPort) + ", " +
                              std::to_string(quillon::kHeartbeatPort) + "-" +
                              std::to_string(quillon::kAnnouncePort);
    const auto to = [](unsigned port) { return "udp dport " + std::to_string(port) + " goto "; };
    // nft deletes only what exists, so the table is made first.
    std::string text = "add table "s + kFenceTable + "\ndelete table " + kFenceTable + "\ntable " +
                       kFenceTable + " {\n";
    for (const FenceReason &reason : kFenceReasons)
        text += "\tcounter "s + reason.counter + " {\n\t}\n";
    text += set("consoles", list.consoles) + set("operators", list.operators) +
            set("software", list.software);
    for (const char *kind :
         {"record", "release", "software", "question", "command", "control", "answer"})
        text += meter("sent_"s + kind);
    text += passing("record", kRecordRate, "records") + passing("release", kRecordRate, "records") +
            passing("software", kRecordRate, "software_records") +
            passing("question", kAnswerRate, "questions") +
            passing("command", kCommandRate, "commands") +
            passing("control", kControlRate, "commands") +
            passing("answer", kAnswerRate, "answers") + recordChain() + commandChain() +
            answerChain("consent", beginning("reply|")) +
            answerChain("heartbeats", exactly(quillon::kHeartbeatAnswer));
    // The input hook sees datagrams whole: the kernel has put fragments together before it.
    text += Chain("input")
                .rule("type filter hook input priority filter; policy accept;")
                .rule("iif lo accept")
                .rule("meta l4proto != udp accept")
                .rule("udp dport != { " + ports + " } accept")
                .rule("iifname != \"" + list.interface + "\" counter name other_interface drop")
                .rule(to(list.recordPort) + "records")
                .rule(to(quillon::kOperatorPort) + "commands")
                .rule(to(quillon::kConsentPort) + "consent")
                .rule(to(quillon::kHeartbeatPort) + "heartbeats")
                .rule("counter name closed_port drop")
                .end();
    return text + "}\n";
}

}  // namespace service
