#include "host/gnss_stream/Caster_Answer.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace host {

namespace {

constexpr std::string_view first_line = "ICY 200 OK\r\n";
constexpr std::string_view refusals[] = {"HTTP/", "SOURCETABLE ", "ERROR", "ICY "};
constexpr std::string_view line_end = "\r\n";
constexpr std::ptrdiff_t longest_name = 40;  // characters of a header's name: letters without end are data

bool Is_Of_Name(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-'; }
bool Is_Text(char c) { return c >= ' ' && c <= '~'; }

bool Can_Begin(std::string_view whole, std::string_view part) { return whole.substr(0, part.size()) == part; }

// Can this become a header line, "Name: value" and a line end? No receiver's data begins like that.
bool May_Be_Header(std::string_view text)
{
    const auto name_end = std::find_if_not(text.begin(), text.end(), Is_Of_Name);
    if (name_end - text.begin() > longest_name) return false;
    if (name_end == text.end()) return true;
    if (name_end == text.begin() || *name_end != ':') return false;
    const auto value_end = std::find_if_not(name_end, text.end(), Is_Text);
    return Can_Begin(line_end, std::string_view(text).substr(static_cast<std::size_t>(value_end - text.begin())));
}

// The same of a line that begins like a refusal.
bool May_Be_Refusal(std::string_view text)
{
    const auto begins = [=](std::string_view refusal) {
        return Can_Begin(refusal, text.substr(0, std::min(text.size(), refusal.size())));
    };
    const auto text_end = std::find_if_not(text.begin(), text.end(), Is_Text);
    return !text.starts_with("ICY 200 OK") && std::any_of(std::begin(refusals), std::end(refusals), begins) &&
           Can_Begin(line_end, text.substr(static_cast<std::size_t>(text_end - text.begin())));
}

}  // namespace

void Caster_Answer::Expect()
{
    expected_ = true;
    accepted_ = refused_ = false;
    held_.clear();
}

// What is left of the piece when the answer is at its end.
Caster_Answer::Bytes Caster_Answer::Skip(Bytes piece)
{
    std::size_t used = 0;
    while (expected_ && used < piece.size()) {
        held_ += static_cast<char>(piece[used++]);
        expected_ = Judge() && held_.size() < longest;
    }
    return piece.subspan(used);
}

// Looks at what is held after each byte; false when the answer is over.
bool Caster_Answer::Judge()
{
    if (!accepted_) {
        accepted_ = held_ == first_line;
        if (accepted_) held_.clear();
        if (accepted_ || Can_Begin(first_line, held_)) return true;
        if (!May_Be_Refusal(held_)) return false;
        refused_ = held_.ends_with(line_end);
        if (refused_) held_.resize(held_.size() - line_end.size());
        return !refused_;
    }
    if (held_ == line_end) {  // the blank line behind the headers
        held_.clear();
        return false;
    }
    if (Can_Begin(line_end, held_)) return true;
    if (!May_Be_Header(held_)) return false;
    if (held_.ends_with(line_end)) held_.clear();
    return true;
}

}  // namespace host
