#include "kernel/settings/command_line.h"

#include "kernel/settings/option_words_internal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <deque>
#include <exception>
#include <numeric>
#include <utility>

namespace kernel {

namespace {

constexpr std::size_t listing_width = 80;  // [columns]
constexpr std::size_t help_column = 26;

// How many letters differ, are missing or too many, for the hint at a mistyped name.
std::size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = std::exchange(row[j + 1], std::min({changed, row[j] + 1, row[j + 1] + 1}));
        }
    }
    return row.back();
}

template <class Number>
std::string Text(Number number)
{
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

template <class Number>
std::string Limits(Number least, Number most, Number value)
{
    return Text(least) + " to " + Text(most) + "; default " + Text(value);
}

template <class Number>
bool Is_Within(Number value, Number least, Number most, std::string &why)
{
    if (least <= value && value <= most) return true;
    why = "is not between " + Text(least) + " and " + Text(most);
    return false;
}

// Puts the words of `text` behind what `listing` has in its last line, from `column` on.
void Add_Paragraph(std::string &listing, std::string_view text, std::size_t column)
{
    std::size_t at = listing.size() - (listing.rfind('\n') + 1);
    if (at > column) {
        listing += '\n';
        at = 0;
    }
    listing.append(column - at, ' ');
    at = column;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end + 1) {
        end = std::min(text.find(' ', begin), text.size());
        if (at > column && at + 1 + (end - begin) > listing_width) {
            listing += '\n';
            listing.append(column, ' ');
            at = column;
        } else if (at > column) {
            listing += ' ';
            ++at;
        }
        listing += text.substr(begin, end - begin);
        at += end - begin;
    }
    listing += '\n';
}

}  // namespace

// One reading of a line. Words from files come in at the place of the file's name.
class Command_Line::Reader {
public:
    Reader(Command_Line &line, std::deque<Option_Word> words) : line_(line), words_(std::move(words)) {}

    Outcome Read()
    {
        while (!words_.empty() && outcome_ == Outcome::run) {
            const Option_Word word = Next();
            const std::string &text = word.text;
            if (options_ended_ || text.size() < 2 || (text[0] != '-' && text[0] != '@'))
                Stray(word);
            else if (text == "--")
                options_ended_ = true;
            else if (text[0] == '@')
                Read_File(word);
            else if (text[1] == '-')
                Long(word);
            else
                Short(word);
        }
        if (outcome_ == Outcome::run) Check_Completeness();
        return outcome_;
    }

private:
    Option_Word Next()
    {
        Option_Word word = std::move(words_.front());
        words_.pop_front();
        return word;
    }
    void Fail(const Option_Word &at, const std::string &text)
    {
        line_.error_ = at.place.empty() ? text : at.place + ": " + text;
        outcome_ = Outcome::wrong;
    }
    void Read_File(const Option_Word &word)
    {
        std::vector<Option_Word> found;
        std::string why;
        if (!Words_Of_File(word, found, why)) return Fail(word, why);
        words_.insert(words_.begin(), found.begin(), found.end());
    }
    void Stray(const Option_Word &word)
    {
        if (!line_.words_) return Fail(word, "'" + word.text + "': no such word is expected");
        if (line_.words_->words_.size() == line_.words_->most_) return Fail(word, "'" + word.text + "': one too many");
        line_.words_->words_.push_back(word.text);
    }
    void Long(const Option_Word &word)
    {
        const std::size_t equals = word.text.find('=');
        const std::string name = word.text.substr(2, equals - 2);
        if (name == "help") return void(outcome_ = Outcome::help);
        CL_Option *const option = line_.Find(name);
        if (!option) return Fail(word, "--" + name + ": no such option" + line_.Nearest(name));
        if (equals != std::string::npos)
            Give(word, "--" + name, *option, std::string_view(word.text).substr(equals + 1));
        else
            Give_Next(word, "--" + name, *option);
    }
    // "-qv", "-p5015", "-p=5015", "-p 5015": letters without values, at most one with a value, and the value.
    void Short(const Option_Word &word)
    {
        for (std::size_t i = 1; i < word.text.size() && outcome_ == Outcome::run; ++i) {
            const std::string shown{'-', word.text[i]};
            CL_Option *const option = line_.Find(word.text[i]);
            std::string_view rest = std::string_view(word.text).substr(i + 1);
            if (!option && word.text[i] == 'h') return void(outcome_ = Outcome::help);
            if (!option) return Fail(word, shown + ": no such option");
            const bool has_equals = rest.starts_with('=');
            if (rest.empty() || (option->Value_Name().empty() && !has_equals)) {
                Give_Next(word, shown, *option);
                continue;
            }
            if (has_equals) rest.remove_prefix(1);
            return Give(word, shown, *option, rest);
        }
    }
    void Give_Next(const Option_Word &word, const std::string &shown, CL_Option &option)
    {
        if (option.Value_Name().empty()) return Give(word, shown, option, "true");
        if (words_.empty()) return Fail(word, shown + ": the value is missing");
        const Option_Word value = Next();
        Give(value, shown, option, value.text);
    }
    void Give(const Option_Word &word, const std::string &shown, CL_Option &option, std::string_view value)
    {
        std::string why;
        if (std::exchange(option.is_given_, true)) return Fail(word, shown + ": given twice");
        if (!option.Take(value, why)) Fail(word, shown + ": '" + std::string(value) + "' " + why);
    }
    void Check_Completeness()
    {
        for (const CL_Option *option : line_.options_) {
            if (option->is_required_ && !option->is_given_)
                return Fail({}, std::string("--") + option->name_ + " is missing");
        }
        const CL_Words *const words = line_.words_;
        if (words && words->words_.size() < words->least_) Fail({}, std::string(words->name_) + " is missing");
    }

    Command_Line &line_;
    std::deque<Option_Word> words_;
    bool options_ended_ = false;
    Outcome outcome_ = Outcome::run;
};

Command_Line::Command_Line(const char *program, const char *purpose) : program_(program), purpose_(purpose) {}

Command_Line::~Command_Line() = default;

CL_Option *Command_Line::Find(std::string_view name) const
{
    const auto found =
        std::find_if(options_.begin(), options_.end(), [&](const CL_Option *option) { return name == option->name_; });
    return found == options_.end() ? nullptr : *found;
}

// '\0' stands for no letter and finds nothing.
CL_Option *Command_Line::Find(char letter) const
{
    const auto found = std::find_if(options_.begin(), options_.end(), [&](const CL_Option *option) {
        return letter != '\0' && letter == option->letter_;
    });
    return found == options_.end() ? nullptr : *found;
}

// A hint, if one name is near enough to be meant.
std::string Command_Line::Nearest(std::string_view name) const
{
    constexpr std::size_t near_enough = 2;
    const auto distance = [&](const CL_Option *option) { return Distance(name, option->name_); };
    const auto nearest =
        std::min_element(options_.begin(), options_.end(),
                         [&](const CL_Option *a, const CL_Option *b) { return distance(a) < distance(b); });
    if (nearest == options_.end() || distance(*nearest) > near_enough) return "";
    return std::string("; --") + (*nearest)->name_ + " is one";
}

bool Command_Line::Names_Are_Unique()
{
    for (const CL_Option *option : options_) {
        const bool is_shadowed = option->letter_ != '\0' && Find(option->letter_) != option;
        if (Find(option->name_) == option && !is_shadowed && std::string_view(option->name_) != "help") continue;
        error_ = std::string("--") + option->name_ + " is declared twice";
        return false;
    }
    return true;
}

Command_Line::Outcome Command_Line::Parse(int argc, const char *const *argv)
{
    try {
        error_.clear();
        for (CL_Option *option : options_) {
            option->is_given_ = false;
            option->Begin();
        }
        if (words_) words_->words_.clear();
        if (!Names_Are_Unique()) return Outcome::wrong;
        std::deque<Option_Word> words;
        for (int i = 1; i < argc; ++i) words.push_back({argv[i], "", 0});
        return Reader(*this, std::move(words)).Read();
    } catch (const std::exception &) {
        error_ = "no memory";  // short enough to need none
        return Outcome::wrong;
    }
}

const char *Command_Line::Listing()
{
    try {
        listing_ = std::string("Usage: ") + program_ + " [options]";
        if (words_) {
            const bool may_lack = words_->least_ == 0;
            listing_ += std::string(may_lack ? " [" : " ") + words_->name_ + (may_lack ? "]" : "") +
                        (words_->most_ > 1 ? "..." : "");
        }
        listing_ += '\n';
        Add_Paragraph(listing_, purpose_, 0);
        listing_ += '\n';
        if (words_) {
            listing_ += std::string("  ") + words_->name_;
            Add_Paragraph(listing_, words_->help_, help_column);
        }
        for (const CL_Option *option : options_) {
            listing_ += option->letter_ ? std::string("  -") + option->letter_ + ", --" : std::string("      --");
            listing_ += option->name_;
            if (const std::string value = option->Value_Name(); !value.empty()) listing_ += " " + value;
            listing_ += ' ';
            const std::string remark = option->Remark();
            Add_Paragraph(listing_, option->help_ + (remark.empty() ? "" : " (" + remark + ")"), help_column);
        }
        listing_ += "  -h, --help ";
        Add_Paragraph(listing_, "this list", help_column);
        return listing_.c_str();
    } catch (const std::exception &) {
        return "";
    }
}

CL_Option::CL_Option(Command_Line &line, char letter, const char *name, const char *help)
    : letter_(letter), name_(name), help_(help)
{
    line.options_.push_back(this);
}

CL_Option::~CL_Option() = default;

CL_Bool::CL_Bool(Command_Line &line, char letter, const char *name, const char *help)
    : CL_Option(line, letter, name, help)
{
}

bool CL_Bool::Take(std::string_view value, std::string &why)
{
    value_ = value == "true";
    if (value_ || value == "false") return true;
    why = "is neither true nor false";
    return false;
}

CL_Int::CL_Int(Command_Line &line, char letter, const char *name, const char *help, long long value, long long least,
               long long most)
    : CL_Option(line, letter, name, help), default_(value), least_(least), most_(most), value_(value)
{
}

bool CL_Int::Take(std::string_view value, std::string &why)
{
    const bool is_hexadecimal = value.starts_with("0x") || value.starts_with("0X");
    const char *const begin = value.data() + (is_hexadecimal ? 2 : value.starts_with('+') ? 1 : 0);
    const char *const end = value.data() + value.size();
    const bool has_second_sign = begin != value.data() && begin != end && *begin == '-';
    const auto [stop, error] = std::from_chars(begin, end, value_, is_hexadecimal ? 16 : 10);
    if (error == std::errc::result_out_of_range) {
        why = "is not between " + Text(least_) + " and " + Text(most_);
        return false;
    }
    if (has_second_sign || error != std::errc() || stop != end) {
        why = "is no whole number";
        return false;
    }
    return Is_Within(value_, least_, most_, why);
}

std::string CL_Int::Remark() const { return Limits(least_, most_, default_); }

CL_Double::CL_Double(Command_Line &line, char letter, const char *name, const char *help, double value, double least,
                     double most)
    : CL_Option(line, letter, name, help), default_(value), least_(least), most_(most), value_(value)
{
}

bool CL_Double::Take(std::string_view value, std::string &why)
{
    const char *const begin = value.data() + (value.starts_with('+') ? 1 : 0);
    const char *const end = value.data() + value.size();
    const bool has_second_sign = begin != value.data() && begin != end && *begin == '-';
    const auto [stop, error] = std::from_chars(begin, end, value_);
    if (has_second_sign || error != std::errc() || stop != end || !std::isfinite(value_)) {
        why = "is no number";
        return false;
    }
    return Is_Within(value_, least_, most_, why);
}

std::string CL_Double::Remark() const { return Limits(least_, most_, default_); }

CL_String::CL_String(Command_Line &line, char letter, const char *name, const char *help, const char *value,
                     std::vector<const char *> choices)
    : CL_Option(line, letter, name, help), default_(value ? value : ""), choices_(std::move(choices)), value_(default_)
{
}

bool CL_String::Take(std::string_view value, std::string &why)
{
    value_ = value;
    if (choices_.empty()) return true;
    why = "is none of";
    for (const char *choice : choices_) {
        if (value == choice) return true;
        why += std::string(" ") + choice;
    }
    return false;
}

std::string CL_String::Remark() const
{
    std::string text;
    for (const char *choice : choices_) text += (text.empty() ? "" : ", ") + std::string(choice);
    if (*default_ != '\0') text += (text.empty() ? "default " : "; default ") + std::string(default_);
    return text;
}

CL_Words::CL_Words(Command_Line &line, const char *name, const char *help, std::size_t least, std::size_t most)
    : name_(name), help_(help), least_(least), most_(most)
{
    line.words_ = this;
}

}  // namespace kernel
