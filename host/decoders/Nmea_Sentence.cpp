#include "host/decoders/Nmea_Sentence.h"

#include "kernel/time/mTime.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <numbers>
#include <utility>

namespace host {

namespace {

constexpr std::size_t checksum_size = 3;  // '*' and two digits
constexpr std::size_t most_fields = 20;

// The fields of a body; those that it has not are empty.
class Fields {
public:
    explicit Fields(std::string_view body)
    {
        for (std::string_view &field : fields_) {
            const std::size_t comma = body.find(',');
            field = body.substr(0, comma);
            body = comma == body.npos ? std::string_view() : body.substr(comma + 1);
        }
    }
    bool Is(std::string_view kind) const
    {
        const std::string_view name = fields_[0];
        return name.size() == kind.size() + 2 && name[0] != 'P' && name.ends_with(kind);  // P: a maker's own sentences
    }
    std::string_view operator[](std::size_t index) const { return fields_[index]; }

private:
    std::array<std::string_view, most_fields> fields_;
};

// A whole field, or nothing.
template <class Number>
std::optional<Number> Value(std::string_view field)
{
    Number number{};
    const char *const end = field.data() + field.size();
    const auto [read, error] = std::from_chars(field.data(), end, number);
    if (error != std::errc() || read != end || field.empty()) return {};
    if constexpr (std::is_floating_point_v<Number>) {
        if (!std::isfinite(number)) return {};
    }
    return number;
}

std::optional<int> Two_Digits(std::string_view field, std::size_t at)
{
    return field.size() < at + 2 || field[at] == '-' ? std::nullopt : Value<int>(field.substr(at, 2));
}

// hhmmss or hhmmss.s: [s]. The second 60 is a leap second.
std::optional<double> Time_Of_Day(std::string_view field)
{
    const auto hour = Two_Digits(field, 0), minute = Two_Digits(field, 2);
    const auto second = Value<double>(field.substr(std::min<std::size_t>(field.size(), 4)));
    if (field.size() < 6 || !hour || !minute || !second || *hour > 23 || *minute > 59 || *second < 0 || *second >= 61)
        return {};
    return *hour * 3600 + *minute * 60 + *second;
}

// dddmm.mmm and a letter: [rad], negative behind `negative`.
std::optional<double> Angle(std::string_view field, std::string_view side, char positive, char negative, double most)
{
    const auto value = Value<double>(field);
    if (!value || *value < 0 || side.size() != 1 || (side[0] != positive && side[0] != negative)) return {};
    const double degrees = std::floor(*value / 100), minutes = *value - degrees * 100;
    const double angle = degrees + minutes / 60;
    if (minutes >= 60 || angle > most) return {};
    return (side[0] == negative ? -angle : angle) * std::numbers::pi / 180;
}

int Hexadecimal(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

Nmea_Scanner::Nmea_Scanner(std::function<void(std::string_view)> sink) : sink_(std::move(sink))
{
    sentence_.reserve(longest_body + checksum_size);
}

void Nmea_Scanner::Feed(std::span<const unsigned char> piece)
{
    for (const unsigned char byte : piece) Take(static_cast<char>(byte));
}

void Nmea_Scanner::Finish()
{
    if (is_inside_) End_Sentence();
}

void Nmea_Scanner::Take(char c)
{
    if (c == '$') {
        if (is_inside_) Refuse();
        is_inside_ = true;
        sentence_.clear();
    } else if (is_inside_) {
        if (c == '\r' || c == '\n') return End_Sentence();
        const bool is_printable = c >= ' ' && c <= '~';
        if (!is_printable || sentence_.size() == longest_body + checksum_size) return Refuse();
        sentence_ += c;
    }
}

void Nmea_Scanner::End_Sentence()
{
    const std::string_view sentence = sentence_;
    const std::size_t size = sentence.find('*');
    if (size == sentence.npos || sentence.size() != size + checksum_size) return Refuse();
    unsigned int sum = 0;
    for (const char c : sentence.substr(0, size)) sum ^= static_cast<unsigned char>(c);
    const int high = Hexadecimal(sentence[size + 1]), low = Hexadecimal(sentence[size + 2]);
    if (high < 0 || low < 0 || static_cast<unsigned int>(high * 16 + low) != sum) return Refuse();
    is_inside_ = false;
    ++count_.sentences;
    sink_(sentence.substr(0, size));
}

void Nmea_Scanner::Refuse()
{
    is_inside_ = false;
    ++count_.refused;
}

std::optional<Nmea_Fix> Read_Gga(std::string_view body)
{
    const Fields fields(body);
    const auto time = Time_Of_Day(fields[1]);
    const auto latitude = Angle(fields[2], fields[3], 'N', 'S', 90);
    const auto longitude = Angle(fields[4], fields[5], 'E', 'W', 180);
    const auto quality = Value<int>(fields[6]);
    const auto altitude = Value<double>(fields[9]), separation = Value<double>(fields[11]);
    if (!fields.Is("GGA") || !time || !latitude || !longitude || !altitude || !separation) return {};
    if (!quality || *quality < 1 || *quality > 8 || fields[10] != "M" || fields[12] != "M") return {};
    return Nmea_Fix{*time,
                    *latitude,
                    *longitude,
                    *altitude + *separation,
                    *quality,
                    Value<int>(fields[7]),
                    Value<double>(fields[8])};
}

std::optional<double> Read_Rmc(std::string_view body)
{
    const Fields fields(body);
    const std::string_view date = fields[9];
    const auto time = Time_Of_Day(fields[1]);
    const auto day = Two_Digits(date, 0), month = Two_Digits(date, 2), year = Two_Digits(date, 4);
    if (!fields.Is("RMC") || !time || fields[2] != "A" || date.size() != 6 || !day || !month || !year) return {};
    const int full_year = *year + (*year < 80 ? 2000 : 1900);
    if (*day < 1 || *day > kernel::mTime::MonthLen(*month, full_year)) return {};
    return kernel::mTime(full_year, *month, *day, 0, 0, 0).get_roguetime() + *time;
}

}  // namespace host
