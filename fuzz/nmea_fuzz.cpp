// NMEA 0183: a stream gives the same sentences however it is cut, and what they say is within its limits.
#include "fuzz/Require.h"
#include "host/decoders/Nmea_Sentence.h"

#include <cmath>
#include <numbers>
#include <vector>

namespace {

using Bytes = std::span<const unsigned char>;

// Every sentence, and the count of those that were refused.
std::vector<std::string> Scan(Bytes bytes, std::size_t piece)
{
    std::vector<std::string> found;
    host::Nmea_Scanner scanner([&](std::string_view body) { found.emplace_back(body); });
    for (; bytes.size() > piece; bytes = bytes.subspan(piece)) scanner.Feed(bytes.first(piece));
    scanner.Feed(bytes);
    scanner.Finish();
    Require(scanner.Count().sentences == found.size(), "another count");
    found.push_back(std::to_string(scanner.Count().refused));
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::vector<std::string> found = Scan({data, size}, size + 1);
    Require(found == Scan({data, size}, 1), "the cut shows");
    for (const std::string &body : found) {
        Require(body.size() <= host::Nmea_Scanner::longest_body + 3, "too long");
        if (const auto fix = host::Read_Gga(body)) {
            Require(std::abs(fix->latitude) <= std::numbers::pi / 2 && std::abs(fix->longitude) <= std::numbers::pi,
                    "not on the Earth");
            Require(fix->time_of_day >= 0 && fix->time_of_day < 86401 && std::isfinite(fix->height),
                    "no time, no height");
        }
        if (const auto utc = host::Read_Rmc(body)) Require(*utc >= 0 && *utc < 3.2e9, "no time of our days");
    }
    return 0;
}
