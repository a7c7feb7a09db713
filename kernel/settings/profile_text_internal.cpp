#include "kernel/settings/profile_text_internal.h"

#include <algorithm>

namespace kernel {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::string_view blanks = " \t\v\f\x1A";
constexpr std::string_view line_ends = "\r\n";

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

bool Is_Same(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    a = Trimmed(a);
    b = Trimmed(b);
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

std::string_view Without_Quotes(std::string_view value)
{
    const bool is_quoted =
        value.size() > 1 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
    return is_quoted ? value.substr(1, value.size() - 2) : value;
}

// One line of a text. `end` is behind its line end.
struct Line {
    explicit Line(std::string_view text, std::size_t at) : begin(at)
    {
        const std::size_t stop = std::min(text.find_first_of(line_ends, at), text.size());
        end = std::min(stop + (text.substr(stop, 2) == "\r\n" ? 2 : 1), text.size());
        stop_ = stop;
        if (at == 0 && text.starts_with(byte_order_mark)) begin = byte_order_mark.size();
        body = Trimmed(text.substr(begin, stop - begin));
    }
    bool Is_Section() const { return body.starts_with('[') && body.rfind(']') != body.npos; }
    std::string_view Section() const { return body.substr(1, body.rfind(']') - 1); }
    bool Is_Key() const { return !body.empty() && !body.starts_with('[') && !body.starts_with(';'); }
    std::string_view Key() const { return body.substr(0, body.find('=')); }
    bool Has_Value() const { return body.find('=') != body.npos; }
    std::string_view Value() const { return Trimmed(body.substr(body.find('=') + 1)); }
    std::size_t Stop() const { return stop_; }  // where its line end begins

    std::size_t begin, end;
    std::string_view body;

private:
    std::size_t stop_;
};

// Where the lines of a section stand: behind its header up to the next header.
struct Place {
    std::size_t header, begin, end;
    std::size_t last;  // behind its last line that is not empty
};

std::optional<Place> Find_Section(std::string_view text, std::string_view section)
{
    std::optional<Place> place;
    for (std::size_t at = 0; at < text.size();) {
        const Line line(text, at);
        if (line.Is_Section()) {
            if (place) return place;
            if (Is_Same(line.Section(), section)) place = Place{line.begin, line.end, line.end, line.end};
        }
        at = line.end;
        if (place) place->end = at;
        if (place && !line.body.empty()) place->last = at;
    }
    return place;
}

std::optional<Line> Find_Key(std::string_view text, const Place &place, std::string_view key)
{
    for (std::size_t at = place.begin; at < place.end;) {
        const Line line(text, at);
        if (line.Is_Key() && Is_Same(line.Key(), key)) return line;
        at = line.end;
    }
    return std::nullopt;
}

std::string_view Line_End(std::string_view text)
{
    const std::size_t end = text.find_first_of(line_ends);
    if (end == text.npos) return "\n";
    return text.substr(end, text.substr(end, 2) == "\r\n" ? 2 : 1);
}

std::string Written(std::string_view value)
{
    const bool needs_quotes = value != Trimmed(value) || value != Without_Quotes(value);
    return needs_quotes ? '"' + std::string(value) + '"' : std::string(value);
}

// Inserts a whole line, also behind a last line that has no line end.
void Insert_Line(std::string &text, std::size_t at, const std::string &line)
{
    const std::string end(Line_End(text));
    const bool joins = at > 0 && line_ends.find(text[at - 1]) == line_ends.npos && text != byte_order_mark;
    text.insert(at, (joins ? end : "") + line + end);
}

}  // namespace

std::optional<std::string_view> Profile_Value(std::string_view text, std::string_view section, std::string_view key)
{
    const std::optional<Place> place = Find_Section(text, section);
    const std::optional<Line> line = place ? Find_Key(text, *place, key) : std::nullopt;
    if (!line || !line->Has_Value()) return std::nullopt;
    return Without_Quotes(line->Value());
}

bool Is_Profile_Section(std::string_view section)
{
    return !Trimmed(section).empty() && section.find_first_of(line_ends) == section.npos;
}

bool Is_Profile_Key(std::string_view key)
{
    const std::string_view name = Trimmed(key);
    return !name.empty() && name.front() != ';' && name.front() != '[' && name.find_first_of("=\r\n") == name.npos;
}

bool Is_Profile_Value(std::string_view value) { return value.find_first_of(line_ends) == value.npos; }

void Set_Profile_Value(std::string &text, std::string_view section, std::string_view key, std::string_view value)
{
    const std::string written = Written(value);
    const std::optional<Place> place = Find_Section(text, section);
    if (!place) Insert_Line(text, text.size(), '[' + std::string(Trimmed(section)) + ']');
    const std::optional<Line> line = place ? Find_Key(text, *place, key) : std::nullopt;
    if (!line) return Insert_Line(text, place ? place->last : text.size(), std::string(Trimmed(key)) + '=' + written);
    if (!line->Has_Value()) return static_cast<void>(text.insert(line->Stop(), '=' + written));
    const std::size_t begin = text.find('=', line->begin) + 1;
    text.replace(begin, line->Stop() - begin, written);
}

void Remove_Profile_Key(std::string &text, std::string_view section, std::string_view key)
{
    const std::optional<Place> place = Find_Section(text, section);
    const std::optional<Line> line = place ? Find_Key(text, *place, key) : std::nullopt;
    if (line) text.erase(line->begin, line->end - line->begin);
}

void Remove_Profile_Section(std::string &text, std::string_view section)
{
    if (const std::optional<Place> place = Find_Section(text, section))
        text.erase(place->header, place->end - place->header);
}

}  // namespace kernel
