#include "host/gnss_stream/Caster_Answer.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace host {

namespace {

constexpr std::string_view acceptance = "ICY 200 OK";
constexpr std::string_view refusals[] = {"HTTP/", "SOURCETABLE ", "ERROR", "ICY "};
constexpr std::string_view line_end = "\r\n";
constexpr std::ptrdiff_t longest_name = 40;  // characters of a header's name; a longer run of letters is data

// Instead of the functions of <cctype>, which depend on the locale.
bool Is_Letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool Is_Of_Name(char c) { return Is_Letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.'; }
bool Is_Text(char c) { return c >= ' ' && c <= '~'; }
char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// Ignores the case, since casters do not agree on it.
bool Begins(std::string_view text, std::string_view beginning)
{
    return text.size() >= beginning.size() && std::equal(beginning.begin(), beginning.end(), text.begin(),
                                                         [](char a, char b) { return Upper(a) == Upper(b); });
}

// Whether the text begins with `beginning`, or is too short to tell but agrees so far.
bool May_Begin(std::string_view text, std::string_view beginning)
{
    return Begins(text, beginning.substr(0, std::min(text.size(), beginning.size())));
}

// A line feed without a carriage return ends a line as well.
bool Ends_Line(std::string_view text) { return text.ends_with('\n'); }
bool May_End_Line(std::string_view rest) { return rest == "\n" || line_end.starts_with(rest); }

// Whether this is, or can become, a header line: "Name: value" and a line end. Data of receivers do not begin like
// that.
bool May_Be_Header(std::string_view text)
{
    const auto name_end = std::find_if_not(text.begin(), text.end(), Is_Of_Name);
    if (name_end - text.begin() > longest_name || (!text.empty() && !Is_Letter(text.front()))) return false;
    if (name_end == text.end()) return true;
    if (*name_end != ':') return false;
    const auto value_end = std::find_if_not(name_end, text.end(), Is_Text);
    return May_End_Line(text.substr(static_cast<std::size_t>(value_end - text.begin())));
}

bool May_Be_Refusal(std::string_view text)
{
    return std::any_of(std::begin(refusals), std::end(refusals), [&](auto one) { return May_Begin(text, one); });
}

bool Is_Refusal_Begun(std::string_view text)
{
    return std::any_of(std::begin(refusals), std::end(refusals), [&](auto one) { return Begins(text, one); });
}

}  // namespace

void Caster_Answer::Expect()
{
    expected_ = true;
    accepted_ = refused_ = false;
    held_.clear();
}

// Returns the rest of the piece behind the answer.
Caster_Answer::Bytes Caster_Answer::Skip(Bytes piece)
{
    std::size_t used = 0;
    while (expected_ && used < piece.size()) {
        held_ += static_cast<char>(piece[used++]);
        expected_ = accepted_ ? Judge_Header() : Judge_First_Line();
        if (held_.size() >= longest) expected_ = false;
    }
    return piece.subspan(used);
}

// Called after each byte; false when the answer has ended. Once held_ begins with a refusal, nothing of it is data.
bool Caster_Answer::Judge_First_Line()
{
    const char last = held_.back();
    const bool ends = !Is_Text(last) && last != '\r';
    if (May_Begin(held_, acceptance)) {
        accepted_ = ends;
        if (!ends) return true;
        held_.erase(0,
                    held_.size() - (last == '\n' ? 0 : 1));  // any other byte that is no text is the first of the data
        return held_.empty();
    }
    if (!Is_Refusal_Begun(held_)) return May_Be_Refusal(held_);
    refused_ = ends || held_.size() >= longest;
    return !refused_;
}

bool Caster_Answer::Judge_Header()
{
    const bool is_blank_line = held_ == line_end || held_ == "\n";  // it ends the headers
    if (is_blank_line || (Ends_Line(held_) && May_Be_Header(held_))) held_.clear();
    return !is_blank_line && (line_end.starts_with(held_) || May_Be_Header(held_));
}

std::string Caster_Answer::Refusal() const
{
    return refused_ ? std::string(held_.begin(), std::find_if_not(held_.begin(), held_.end(), Is_Text)) : "";
}

// The incomplete first line of an answer is no data: it counts as a refusal.
void Caster_Answer::End_First_Line()
{
    refused_ |= expected_ && !accepted_ && !held_.empty();
    expected_ = false;
}

}  // namespace host
