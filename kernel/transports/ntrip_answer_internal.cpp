#include "kernel/transports/ntrip_answer_internal.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace kernel {

namespace {

constexpr std::size_t judged_piece = 50;  // bytes
constexpr std::string_view accepted = "ICY 200 OK";

// Returns the status line behind its first two words, with the blank before the rest. Returns the whole line when it
// has fewer than two blanks.
std::string_view Reason(std::string_view text)
{
    const std::size_t first = text.find(' ');
    const std::size_t second = first == text.npos ? text.npos : text.find(' ', first + 1);
    if (second != text.npos) text.remove_prefix(second);
    return text.substr(0, text.find("\r\n"));
}

// Replaces control characters, so that a caster cannot write lines of its own into a log.
char Printable(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c; }

}  // namespace

void Ntrip_Answer::Expect(bool answer)
{
    awaited_ = answer;
    count_ = 0;  // drops the bytes of a connection that broke before it was judged
}

bool Ntrip_Answer::Accepts(const char *piece, std::size_t n, std::string &message)
{
    const std::size_t added = std::min(n, answer_.size() - count_);
    std::memcpy(answer_.data() + count_, piece, added);
    count_ += added;
    if (added < judged_piece) return true;  // the length of this piece decides, not the sum
    const bool good = std::string_view(answer_.data(), count_).substr(0, accepted.size()) == accepted;
    if (!good) message = Refusal();
    Expect(false);
    return good;
}

std::string Ntrip_Answer::Refusal() const
{
    const std::string_view text(answer_.data(), count_);
    std::string reason(Reason(text.substr(0, text.find('\0'))));
    std::transform(reason.begin(), reason.end(), reason.begin(), Printable);
    std::string message = "NTRIP error: " + (reason == " OK" ? "Mountpoint not available" : reason) + ". ";
    if (message.find("Unauthorized") != message.npos) message += " Please check user name and password.";
    return message;
}

}  // namespace kernel
