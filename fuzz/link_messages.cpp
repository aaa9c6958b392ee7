// Any messages to a console about control, from endpoints and from others that claim to be one, and
// the questions for consent that a person is to answer.

#include <fuzzer/FuzzedDataProvider.h>

#include <set>

#include "fuzz/require.h"
#include "terminal/printable.h"
#include <quillon/questions.h>

namespace {

using namespace quillon;

void check(const Questions &questions) {
    std::set<std::pair<std::string, std::string>> known;
    std::multiset<std::string> senders;
    for (const Question &question : questions.all()) {
        fuzz::require(known.insert({question.from.sender, question.message.user}).second,
                      "one question for an endpoint and user");
        senders.insert(question.from.sender);
        fuzz::require(senders.count(question.from.sender) <= 4, "a few of one endpoint");
        fuzz::require(questions.find(question.number) == &question, "found by its number");
    }
    fuzz::require(questions.size() <= 16 + 4, "some in all");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    Questions questions("192.168.1.10");
    Question::Time now{};
    while (input.remaining_bytes() > 0) {
        const std::string sender =
            "192.168.1." + std::to_string(input.ConsumeIntegral<unsigned char>());
        const auto message = parseLinkMessage(input.ConsumeRandomLengthString());
        now += std::chrono::milliseconds(input.ConsumeIntegral<unsigned short>());
        if (message) {
            for (const char c : printable(inWords(*message) + endpointWords(sender, *message) +
                                          consentAnswer(sender, *message, true)))
                fuzz::require(c >= ' ' && c <= '~', "plain text");
            questions.add(*message, {"", sender, 41303}, now);
        }
        if (input.ConsumeBool()) questions.remove(input.ConsumeIntegral<unsigned char>());
        if (input.ConsumeBool()) questions.takeLate(now);
        check(questions);
    }
    return 0;
}
