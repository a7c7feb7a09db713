#include "kernel/bytes/typed_line_internal.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

namespace kernel {

namespace {

using std::string_view;

// Widths and precisions are cut to this, so that sums of them do not overflow: far beyond any buffer, since a field
// that is cut must begin as the whole one does.
constexpr std::size_t most_number = std::size_t{1} << 30;

// Cuts what does not fit into the buffer.
class Output {
public:
    Output(char *out, std::size_t size) : out_(out), size_(size) {}

    void Put(char c, std::size_t times = 1)
    {
        const std::size_t fits = std::min(times, size_ - fill_);
        std::fill_n(out_ + fill_, fits, c);
        fill_ += fits;
    }
    void Put(string_view text)
    {
        const std::size_t fits = std::min(text.size(), size_ - fill_);
        std::copy_n(text.data(), fits, out_ + fill_);
        fill_ += fits;
    }
    std::size_t Fill() const { return fill_; }

private:
    char *const out_;
    const std::size_t size_;
    std::size_t fill_ = 0;
};

struct Directive {
    bool left = false, plus = false, blank = false, alternate = false, zeros = false;
    std::size_t width = 0;
    std::optional<std::size_t> precision;
    char conversion = '\0';
};

// Reads a directive behind its percent sign.
class Parser {
public:
    explicit Parser(string_view text) : text_(text) {}

    // Fills in the directive and returns the number of its characters, or 0 when it is none.
    std::size_t Parse(Directive &directive)
    {
        Skip_Position();
        while (Flag(directive)) ++at_;
        directive.width = Number();
        if (Now() == '.') {
            ++at_;
            directive.precision = Number();
        }
        while (Now() != '\0' && std::strchr("hlLqjzt", Now())) ++at_;
        directive.conversion = Now();
        const bool known = Now() != '\0' && std::strchr("%diouxXeEfFgGaAcspn", Now());
        return known ? at_ + 1 : 0;
    }

private:
    char Now() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    bool Is_Digit() const { return Now() >= '0' && Now() <= '9'; }

    // "1$", the number of the argument.
    void Skip_Position()
    {
        while (Is_Digit()) ++at_;
        if (at_ > 0 && Now() == '$')
            ++at_;
        else
            at_ = 0;
    }
    bool Flag(Directive &directive) const
    {
        switch (Now()) {
        case '-': return directive.left = true;
        case '+': return directive.plus = true;
        case ' ': return directive.blank = true;
        case '#': return directive.alternate = true;
        case '0': return directive.zeros = true;
        case '\'': return true;  // groups of thousands
        default: return false;
        }
    }
    std::size_t Number()
    {
        if (Now() == '*') {
            ++at_;
            return 0;
        }
        std::uint64_t number = 0;
        for (; Is_Digit(); ++at_)
            number = std::min<std::uint64_t>(most_number, number * 10 + static_cast<std::uint64_t>(Now() - '0'));
        return static_cast<std::size_t>(number);
    }

    const string_view text_;
    std::size_t at_ = 0;
};

// A zero as it is printed: `prefix`, `zeros` times '0', a point and `decimals` times '0', `suffix`.
struct Zero {
    char sign = '\0';
    string_view prefix;
    std::size_t zeros = 1;
    bool point = false;
    std::size_t decimals = 0;
    string_view suffix;

    std::size_t Size() const
    {
        return (sign ? 1 : 0) + prefix.size() + zeros + (point ? 1 : 0) + decimals + suffix.size();
    }
};

bool Is_One_Of(char conversion, const char *set) { return std::strchr(set, conversion) != nullptr; }

Zero Field_Of(const Directive &d)
{
    Zero zero;
    if (Is_One_Of(d.conversion, "csn")) zero.zeros = 0;
    if (Is_One_Of(d.conversion, "dieEfFgGaA")) zero.sign = d.plus ? '+' : d.blank ? ' ' : '\0';
    if (Is_One_Of(d.conversion, "diouxX") && d.precision) {
        const std::size_t least = d.conversion == 'o' && d.alternate ? 1 : 0;
        zero.zeros = std::max(*d.precision, least);
    }
    if (Is_One_Of(d.conversion, "eEfF")) zero.decimals = d.precision.value_or(6);
    if (Is_One_Of(d.conversion, "gG") && d.alternate)
        zero.decimals = std::max<std::size_t>(d.precision.value_or(6), 1) - 1;
    if (Is_One_Of(d.conversion, "aA")) zero.decimals = d.precision.value_or(0);
    if (Is_One_Of(d.conversion, "eEfFgGaA")) zero.point = zero.decimals > 0 || d.alternate;
    switch (d.conversion) {
    case 'e': zero.suffix = "e+00"; break;
    case 'E': zero.suffix = "E+00"; break;
    case 'a': zero.prefix = "0x", zero.suffix = "p+0"; break;
    case 'A': zero.prefix = "0X", zero.suffix = "P+0"; break;
    default: break;
    }
    return zero;
}

void Put_Field(const Directive &d, Output &out)
{
    if (d.conversion == 'n') return;
    if (d.conversion == '%') return out.Put('%');
    const Zero zero = Field_Of(d);
    const std::size_t padding = d.width > zero.Size() ? d.width - zero.Size() : 0;
    // A precision gives the number of digits of an integer; the flag '0' then does not pad it.
    const bool with_zeros =
        d.zeros && !d.left && !Is_One_Of(d.conversion, "csp") && !(d.precision && Is_One_Of(d.conversion, "diouxX"));
    if (!d.left && !with_zeros) out.Put(' ', padding);
    if (zero.sign) out.Put(zero.sign);
    out.Put(zero.prefix);
    if (with_zeros) out.Put('0', padding);
    out.Put('0', zero.zeros);
    if (zero.point) out.Put('.');
    out.Put('0', zero.decimals);
    out.Put(zero.suffix);
    if (d.left) out.Put(' ', padding);
}

}  // namespace

std::size_t Format_Without_Arguments(string_view line, char *out, std::size_t size)
{
    Output output(out, size);
    while (!line.empty()) {
        const std::size_t plain = std::min(line.find('%'), line.size());
        output.Put(line.substr(0, plain));
        line.remove_prefix(plain);
        if (line.empty()) break;
        Directive directive;
        const std::size_t length = Parser(line.substr(1)).Parse(directive);
        if (length > 0)
            Put_Field(directive, output);
        else
            output.Put('%');
        line.remove_prefix(length + 1);
    }
    return output.Fill();
}

}  // namespace kernel
