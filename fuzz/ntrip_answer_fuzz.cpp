// A caster's answer, in pieces: it is judged once, by the rules, and gives one short line of text. The first byte is
// the size of the pieces; the rest is the answer.
#include "fuzz/Require.h"
#include "kernel/transports/ntrip_answer_internal.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace {

bool Is_Control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

bool Is_A_Report(const std::string &message)
{
    return message.starts_with("NTRIP error: ") && message.size() < 320 && message.find(". ") != message.npos &&
           std::none_of(message.begin(), message.end(), Is_Control);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    const std::size_t piece = data[0] + std::size_t{1};
    const std::string_view text(reinterpret_cast<const char *>(data + 1), size - 1);
    kernel::Ntrip_Answer answer;
    answer.Expect(true);
    std::size_t kept = 0;  // of the answer, by a count of our own
    for (std::size_t at = 0; at < text.size() && answer.Is_Awaited(); at += piece) {
        const std::string_view now = text.substr(at, piece);
        const std::unique_ptr<char[]> exact(new char[now.size()]);  // a byte too far is found
        std::copy(now.begin(), now.end(), exact.get());
        const std::size_t added = std::min(now.size(), 250 - kept);
        kept += added;
        std::string message;
        const bool accepted = answer.Accepts(exact.get(), now.size(), message);
        Require(answer.Is_Awaited() == (added < 50), "not judged when it is complete");
        Require(accepted == (added < 50 || text.starts_with("ICY 200 OK")), "accepted or refused against the rule");
        Require(accepted ? message.empty() : Is_A_Report(message), "a report that is none");
    }
    return 0;
}
