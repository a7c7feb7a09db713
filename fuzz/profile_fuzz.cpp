// Profile files: what was written is read back, and the rest of the text stays. The input's first two lines are a key
// and a value; the file follows.
#include "fuzz/Require.h"
#include "kernel/settings/profile_text_internal.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace kernel;
    std::string text(reinterpret_cast<const char *>(data), size);
    const auto line = [&text] {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string taken = text.substr(0, end);
        text.erase(0, end + 1);
        return taken;
    };
    const std::string key = line(), value = line();
    const std::string section = "Station 7";
    if (!Is_Profile_Key(key) || !Is_Profile_Value(value)) return 0;

    const std::string before = text;
    const auto other = Profile_Value(before, "a", "k");
    const std::string kept = other ? std::string(*other) : "";
    Set_Profile_Value(text, section, key, value);
    const auto got = Profile_Value(text, section, key);
    Require(got && *got == value, "another value came back");
    const auto still = Profile_Value(text, "a", "k");
    Require(other.has_value() == still.has_value() && (!still || *still == kept), "another section has changed");

    const std::string with = text;
    Set_Profile_Value(text, section, key, value);
    Require(text == with, "the same value again changes the text");
    Remove_Profile_Key(text, section, key);
    Require(text.size() < with.size(), "the key is still there");
    Remove_Profile_Section(text, section);
    const auto last = Profile_Value(text, "a", "k");
    Require(!other || last, "another section has gone");
    return 0;
}
