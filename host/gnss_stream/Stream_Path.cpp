#include "host/gnss_stream/Stream_Path.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace host {

namespace {

using std::string;
using std::string_view;

// Ends the parsing. The text never quotes the path: in a mistyped path the password may be anywhere.
struct Path_Error {
    string text;
};

[[noreturn]] void Fail(const string &text) { throw Path_Error{text}; }

// Instead of std::tolower, which depends on the locale and must not get a negative char.
char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool Equal(string_view a, string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

bool Is_Digits(string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::uint32_t Number(string_view text, std::uint32_t least, std::uint32_t most, const char *what)
{
    std::uint32_t value = 0;
    // from_chars takes no sign and no blank, as strtoul would; `end` shows that nothing follows.
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
        Fail(string(what) + " must be a number from " + std::to_string(least) + " to " + std::to_string(most));
    return value;
}

// Names appear in requests and reports, where a blank or a control character would end them.
void Check_Name(string_view text, const char *what)
{
    if (text.empty()) Fail(string("there is no ") + what);
    // Negative chars are letters beyond ASCII, which are allowed.
    if (std::any_of(text.begin(), text.end(), [](char c) { return (c >= 0 && c <= ' ') || c == 0x7F; }))
        Fail(string("a blank or control character in the ") + what);
}

void Check_Host(string_view host)
{
    Check_Name(host, "host");
    if (host.find_first_of("[]:/") != string_view::npos) Fail("the host is neither a name nor an IPv4 address");
}

std::uint16_t Port(string_view text) { return static_cast<std::uint16_t>(Number(text, 1, 65535, "the port")); }

// --- Each kind of path, without its scheme

std::vector<string_view> Fields(string_view text)
{
    std::vector<string_view> fields;
    for (std::size_t colon; (colon = text.find(':')) != string_view::npos; text.remove_prefix(colon + 1))
        fields.push_back(text.substr(0, colon));
    fields.push_back(text);
    return fields;
}

char Parity(string_view text)
{
    if (text.size() == 1 && string_view("neo").find(Lower(text[0])) != string_view::npos) return Lower(text[0]);
    Fail("the parity must be n, e or o");
}

bool Flow(string_view text)
{
    if (Equal(text, "rts")) return true;
    if (Equal(text, "off")) return false;
    Fail("the flow control must be off or rts");
}

// An empty setting keeps its default.
Stream_Path Serial(string_view text)
{
    const auto fields = Fields(text);
    Serial_Path path;
    path.port = fields[0];
    Check_Name(path.port, "serial port");
    // Most likely the baud rate of a path without a port.
    if (Is_Digits(path.port)) Fail("a number is not the name of a serial port");
    if (fields.size() > 6) Fail("nothing follows the flow control");
    const auto given = [&](std::size_t at) { return fields.size() > at && !fields[at].empty(); };
    if (given(1)) path.baud = Number(fields[1], 1, 4'000'000, "the baud rate");
    if (given(2)) path.bits = static_cast<int>(Number(fields[2], 5, 8, "the number of data bits"));
    if (given(3)) path.parity = Parity(fields[3]);
    if (given(4)) path.stop = static_cast<int>(Number(fields[4], 1, 2, "the number of stop bits"));
    if (given(5)) path.rts = Flow(fields[5]);
    return path;
}

Stream_Path Tcp_Client(string_view text)
{
    // The last colon, so that an IPv6 address is reported as a wrong host and not as a wrong port.
    const std::size_t colon = text.rfind(':');
    Check_Host(text.substr(0, colon));
    if (colon == string_view::npos) Fail("there is no port after the host");
    return Tcp_Client_Path{string(text.substr(0, colon)), Port(text.substr(colon + 1))};
}

Stream_Path Tcp_Server(string_view text)
{
    if (text.empty() || text[0] != ':') Fail("a server has a port and no host: tcpsvr://:PORT");
    return Tcp_Server_Path{static_cast<std::uint16_t>(Number(text.substr(1), 0, 65535, "the port"))};
}

Stream_Path Ntrip(string_view text)
{
    Ntrip_Path path;
    // Credentials end at the last '@', because a password may contain '@', '/' and ':'. The user ends at the first ':';
    // without a ':' the password is empty.
    if (const std::size_t at = text.rfind('@'); at != string_view::npos) {
        const string_view credentials = text.substr(0, at);
        const std::size_t colon = std::min(credentials.find(':'), credentials.size());
        path.credentials.emplace(credentials.substr(0, colon), credentials.substr(std::min(colon + 1, at)));
        if (path.credentials->first.empty()) Fail("there is no user before the password");
        if (credentials.find_first_of(string_view("\0\r\n", 3)) != string_view::npos)
            Fail("a control character in the credentials");
        text.remove_prefix(at + 1);
    }
    if (const std::size_t slash = text.find('/'); slash != string_view::npos) {
        path.mountpoint = text.substr(slash + 1);
        if (!path.mountpoint.empty()) Check_Name(path.mountpoint, "mountpoint");
        text = text.substr(0, slash);
    }
    const std::size_t colon = text.rfind(':');
    path.host = text.substr(0, colon);
    Check_Host(path.host);
    if (colon != string_view::npos) path.port = Port(text.substr(colon + 1));
    return path;
}

double Measure(string_view text, double least, double most, const char *error)
{
    double value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    // "nan" is neither at least the one nor at most the other.
    if (fault == std::errc() && end == text.data() + text.size() && value >= least && value <= most) return value;
    Fail(error);
}

constexpr string_view option_mark = "::";

File_Path File_With_Options(string_view name, string_view options)
{
    std::optional<double> speed, start;
    bool has_tags = false;
    while (!options.empty()) {
        options.remove_prefix(option_mark.size());
        const string_view option = options.substr(0, options.find(option_mark));
        options.remove_prefix(option.size());
        if (Equal(option, "tmt") && !has_tags)
            has_tags = true;
        else if (option.starts_with('x') && !speed)
            speed = Measure(option.substr(1), Replay_Pace::least_speed, Replay_Pace::most_speed,
                            "the speed after ::x must be a number from 0.1 to 1000");
        else if (option.starts_with('+') && !start)
            start = Measure(option.substr(1), 0, Replay_Pace::latest_start,
                            "the start after ::+ must be a number of seconds, 0 or more");
        else
            Fail("after :: comes one of tmt, xSPEED and +SECONDS, each once");
    }
    if (!has_tags) Fail("::x and ::+ replay a recording by its time tags: ::tmt is missing");
    return {string(name), Replay_Pace{speed.value_or(1), start.value_or(0)}};
}

Stream_Path File(string_view text)
{
    const string_view name = text.substr(0, text.find(option_mark));
    if (name.empty()) Fail("there is no file name");
    if (name.find('\0') != string_view::npos) Fail("a zero byte in the file name");
    if (name.size() < text.size()) return File_With_Options(name, text.substr(name.size()));
    return File_Path{string(name)};
}

Stream_Path Pipe(string_view text)
{
    constexpr string_view role = "?server";
    Pipe_Path path;
    path.is_server = text.size() >= role.size() && Equal(text.substr(text.size() - role.size()), role);
    if (path.is_server) text.remove_suffix(role.size());
    path.name = text;
    Check_Name(path.name, "name of a pipe");
    if (path.name.find('?') != string::npos) Fail("after the name of a pipe comes ?server or nothing");
    return path;
}

struct Scheme {
    string_view name;
    Stream_Path (*parse)(string_view);
    bool may_have_at;
};
constexpr std::array<Scheme, 6> schemes = {{{"serial", Serial, false},
                                            {"tcpcli", Tcp_Client, false},
                                            {"tcpsvr", Tcp_Server, false},
                                            {"pipe", Pipe, false},
                                            {"ntrip", Ntrip, true},
                                            {"file", File, true}}};

// A path with a misspelt or missing scheme must not be taken for a file name: reports would show it with its password.
Stream_Path Parse(string_view text)
{
    if (text.empty() || text == "-") return Standard_Path{};
    const std::size_t colon = std::min(text.find(':'), text.size());
    // "C:\data" is a file: "C" is no scheme, and no "://" follows.
    const string_view name = text.substr(0, colon);
    const bool has_slashes = text.substr(colon).starts_with("://");
    const auto scheme = std::find_if(schemes.begin(), schemes.end(), [&](auto &s) { return Equal(s.name, name); });
    const bool has_at = text.find('@', colon) != string_view::npos;
    // Without the colon "serial" is the name of a file.
    if (colon < text.size() && scheme != schemes.end()) {
        if (!has_slashes) Fail("after " + string(scheme->name) + " comes ://");
        if (has_at && !scheme->may_have_at) Fail("credentials belong to ntrip:// only");
        return scheme->parse(text.substr(colon + 3));
    }
    if (has_slashes || has_at)
        Fail("it begins with none of serial://, tcpcli://, tcpsvr://, pipe://, ntrip:// and file:// (which a file's "
             "name with "
             "':' and '@' in it needs)");
    return File(text);
}

string Shortest(double value)
{
    std::array<char, 32> text;
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

struct Shower {
    string operator()(const Standard_Path &) const { return "-"; }
    string operator()(const File_Path &path) const
    {
        if (!path.tags) return path.name;
        string shown = path.name + "::tmt";
        if (path.tags->speed != 1) shown += "::x" + Shortest(path.tags->speed);
        if (path.tags->start != 0) shown += "::+" + Shortest(path.tags->start);
        return shown;
    }
    string operator()(const Serial_Path &path) const
    {
        return "serial://" + path.port + ':' + std::to_string(path.baud) + ':' + std::to_string(path.bits) + ':' +
               path.parity + ':' + std::to_string(path.stop) + (path.rts ? ":rts" : ":off");
    }
    string operator()(const Tcp_Client_Path &path) const
    {
        return "tcpcli://" + path.host + ':' + std::to_string(path.port);
    }
    string operator()(const Tcp_Server_Path &path) const { return "tcpsvr://:" + std::to_string(path.port); }
    string operator()(const Pipe_Path &path) const { return "pipe://" + path.name + (path.is_server ? "?server" : ""); }
    string operator()(const Ntrip_Path &path) const
    {
        return "ntrip://" + path.host + ':' + std::to_string(path.port) + '/' + path.mountpoint;
    }
};

}  // namespace

std::optional<Stream_Path> Parse_Stream_Path(std::string_view text, std::string &error)
{
    try {
        return Parse(text);
    } catch (const Path_Error &fault) {
        error = fault.text;
        return {};
    }
}

std::string Shown(const Stream_Path &path) { return std::visit(Shower{}, path); }

std::string_view Credentials_In(std::string_view argument)
{
    const string_view marks[] = {"://", "ntrip:"};
    for (const string_view mark : marks) {
        const auto found = std::search(argument.begin(), argument.end(), mark.begin(), mark.end(),
                                       [](char x, char y) { return Lower(x) == y; });
        const std::size_t begin = static_cast<std::size_t>(found - argument.begin()) + mark.size();
        const std::size_t end = argument.rfind('@');
        if (found != argument.end() && end != string_view::npos && end > begin)
            return argument.substr(begin, end - begin);
    }
    return {};
}

}  // namespace host
