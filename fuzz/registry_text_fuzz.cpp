// A text of registry values: what is read from it, written and read again, is the same.
#include "fuzz/Require.h"
#include "host/gnss_config/Registry_Text.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using host::Registry_Content;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    std::vector<Registry_Content> contents, again;
    std::string error;
    const bool is_good = host::Parse_Registry_Text(text, contents, error);
    Require(is_good == error.empty(), "an error without words, or words without an error");
    if (!is_good) return 0;

    std::string written;
    for (const Registry_Content &content : contents) {
        written += Shown(content.key) + '\n';
        for (const host::Registry_Value &value : content.values) written += Shown(value) + '\n';
    }
    Require(host::Parse_Registry_Text(written, again, error), "what was written cannot be read");
    Require(again == contents, "what was written reads as something else");
    return 0;
}
