// Paths of streams: a path that is accepted is shown in a form that is accepted again, and no password gets into a
// text.
#include "host/gnss_stream/Stream_Path.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

// A file's name may look like anything but a path.
void Check_Shown(const host::Stream_Path &path)
{
    std::string error, shown = Shown(path);
    if (std::holds_alternative<host::File_Path>(path)) shown = "file://" + shown;
    const auto again = host::Parse_Stream_Path(shown, error);
    if (!again || again->index() != path.index() || Shown(*again) != Shown(path)) std::abort();
}

void Check_Secret(const std::string &text, const std::string &secret)
{
    if (text.find(secret) != std::string::npos) return;  // then it may be the name of a host or a mountpoint
    const std::string with_secret = "ntrip://me:" + secret + '@' + text;
    std::string said;
    if (const auto path = host::Parse_Stream_Path(with_secret, said)) said = Shown(*path);
    if (said.find(secret) != std::string::npos) std::abort();
    if (host::Credentials_In("--in=" + with_secret).find(secret) == std::string::npos) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::string error;
    const auto path = host::Parse_Stream_Path(text, error);
    if (path) Check_Shown(*path);
    if (!path && error.empty()) std::abort();
    Check_Secret(text, "hush-hush");
    return 0;
}
