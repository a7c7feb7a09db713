#include "kernel/services/resource_reader_internal.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace kernel {

namespace {

constexpr char end_of_text = 0x1A;
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
constexpr std::string_view white_space = " \t\f\n";
constexpr std::size_t longest_line_comment = 2000;  // [bytes] behind "//"; what follows is read as tokens

// Independent of the host's locale.
bool Is_Digit(char c) { return c >= '0' && c <= '9'; }
bool Begins_Word(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }

char Escaped(char c)
{
    constexpr std::string_view letters = "ntvbrfa", meanings = "\n\t\v\b\r\f\a";
    const std::size_t found = letters.find(c);
    return found == letters.npos ? c : meanings[found];
}

std::string In_Text_Mode(std::string_view bytes)
{
    if (bytes.starts_with(byte_order_mark)) bytes.remove_prefix(byte_order_mark.size());
    bytes = bytes.substr(0, bytes.find(end_of_text));
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (bytes.substr(i, 2) != "\r\n") text += bytes[i];
    }
    return text;
}

}  // namespace

Resource_Reader::Resource_Reader(std::string_view bytes, Callback callback)
    : text_(In_Text_Mode(bytes)), callback_(callback)
{
}

bool Resource_Reader::Read_Header()
{
    // Names are not joined: the two would be one.
    return Next_Is(Kind::text) && Next_Is(Kind::text) && Next_Is('{');
}

bool Resource_Reader::At_End()
{
    Skip_Space();
    return at_ == text_.size() && !has_open_comment_;
}

bool Resource_Reader::Read_Entry(Resource_Entry &entry)
{
    if (!Next_Is(Kind::number)) return false;
    entry.number = token_.number;
    entry.line = token_.line;
    if (!Next_Is(',') || !Next_Is(Kind::text)) return false;
    Join_Literals();
    if (token_.kind != Kind::text) return false;
    entry.text = token_.text;
    return Next_Is(';');
}

void Resource_Reader::Skip_To(std::size_t end)
{
    const auto begin = text_.begin();
    line_ += static_cast<int>(
        std::count(begin + static_cast<std::ptrdiff_t>(at_), begin + static_cast<std::ptrdiff_t>(end), '\n'));
    at_ = end;
}

void Resource_Reader::Skip_White_Space() { Skip_To(std::min(text_.find_first_not_of(white_space, at_), text_.size())); }

bool Resource_Reader::Skip_Comment()
{
    const std::string_view rest = std::string_view(text_).substr(at_);
    if (rest.starts_with("//")) {
        at_ += std::min({rest.find('\n'), rest.size(), longest_line_comment + 2});
        return true;
    }
    if (!rest.starts_with("/*")) return false;
    const std::size_t end = text_.find("*/", at_ + 2);
    has_open_comment_ = end == text_.npos;
    if (has_open_comment_) token_.line = line_;
    Skip_To(has_open_comment_ ? text_.size() : end + 2);
    return true;
}

void Resource_Reader::Skip_Space()
{
    do Skip_White_Space();
    while (Skip_Comment());
}

void Resource_Reader::Next()
{
    Skip_Space();
    if (at_ == text_.size()) {
        token_.kind = Kind::end;  // with the line of the token before
        return;
    }
    token_.line = line_;
    token_.text.clear();
    const char c = text_[at_];
    if (Is_Digit(c) || c == '.') return Read_Number();
    if (Begins_Word(c)) return Read_Word();
    if (c == '"') return Read_Literal();
    token_.kind = Kind::symbol;
    token_.symbol = c == '/' ? ',' : c;  // a slash that begins no comment is a comma and takes the next character along
    Skip_To(std::min(at_ + (c == '/' ? 2 : 1), text_.size()));
}

bool Resource_Reader::Next_Is(Kind kind)
{
    Next();
    return token_.kind == kind;
}

bool Resource_Reader::Next_Is(char symbol) { return Next_Is(Kind::symbol) && token_.symbol == symbol; }

void Resource_Reader::Read_Number()
{
    const bool is_hexadecimal = text_.compare(at_, 2, "0x") == 0 || text_.compare(at_, 2, "0X") == 0;
    const char *const begin = text_.data() + at_ + (is_hexadecimal ? 2 : 0);
    double number = 0;
    const auto [end, error] = std::from_chars(begin, text_.data() + text_.size(), number,
                                              is_hexadecimal ? std::chars_format::hex : std::chars_format::general);
    const bool is_good = error == std::errc() && number < std::numeric_limits<std::int32_t>::max() + 1.0;
    token_.kind = is_good ? Kind::number : Kind::broken;
    token_.number = is_good ? static_cast<std::int32_t>(number) : 0;
    at_ = std::max(static_cast<std::size_t>(end - text_.data()), at_ + 1);
}

void Resource_Reader::Read_Word()
{
    token_.kind = Kind::text;
    while (at_ < text_.size() && (Begins_Word(text_[at_]) || Is_Digit(text_[at_])) && Append(text_[at_])) ++at_;
}

// Adds to the token, so that literals can be joined.
void Resource_Reader::Read_Literal()
{
    token_.kind = Kind::text;
    token_.line = line_;
    for (++at_; at_ < text_.size() && text_[at_] != '\n'; ++at_) {
        char c = text_[at_];
        if (c == '"') {
            ++at_;
            return;
        }
        if (c == '\\' && at_ + 1 < text_.size()) {
            c = Escaped(text_[++at_]);
            if (text_[at_] == '\n') ++line_;
        }
        if (!Append(c)) return;
    }
    Refuse("missing quote");
}

// Comments do not join, and neither do words.
void Resource_Reader::Join_Literals()
{
    if (at_ == 0 || text_[at_ - 1] != '"') return;
    for (Skip_White_Space(); token_.kind == Kind::text && At('"'); Skip_White_Space()) Read_Literal();
}

bool Resource_Reader::Append(char c)
{
    if (token_.text.size() == longest_text) {
        Refuse("string to long");
        return false;
    }
    token_.text += c;
    return true;
}

void Resource_Reader::Refuse(const char *why)
{
    token_.kind = Kind::broken;
    if (callback_) callback_((std::string(why) + " - " + token_.text).c_str());
}

}  // namespace kernel
