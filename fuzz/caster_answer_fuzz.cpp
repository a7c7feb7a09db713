// The answer of a caster. The data that pass are the end of the stream, do not depend on the size of the pieces, and
// are none after a refusal. The first byte is the size of a piece.
#include "host/gnss_stream/Caster_Answer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

std::string Passed(const std::string &stream, std::size_t piece_size)
{
    host::Caster_Answer answer;
    std::string data;
    const auto take = [&](host::Caster_Answer::Bytes bytes) { data.append(bytes.begin(), bytes.end()); };
    answer.Expect();
    for (std::size_t at = 0; at < stream.size(); at += piece_size) {
        const std::string piece = stream.substr(at, piece_size);
        answer.Pass({reinterpret_cast<const unsigned char *>(piece.data()), piece.size()}, take);
    }
    answer.End(take);
    if (answer.Is_Refusal() ? !data.empty() : !answer.Refusal().empty()) std::abort();
    return data;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0) return 0;
    const std::string stream(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string passed = Passed(stream, std::max<std::size_t>(data[0], 1));
    if (passed != Passed(stream, 1) || !stream.ends_with(passed)) std::abort();
    return 0;
}
