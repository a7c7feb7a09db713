#include "host/gnss_stream/Caster_Answer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

// The data that pass when the stream arrives in pieces of n bytes.
std::string Passed(const std::string &stream, std::size_t n)
{
    host::Caster_Answer answer;
    answer.Expect();
    std::string data;
    const auto take = [&](host::Caster_Answer::Bytes bytes) { data.append(bytes.begin(), bytes.end()); };
    for (std::size_t at = 0; at < stream.size(); at += n) {
        const std::string piece = stream.substr(at, n);
        answer.Pass({reinterpret_cast<const unsigned char *>(piece.data()), piece.size()}, take);
    }
    answer.End(take);
    return data;
}

TEST(Caster_Answer, comes_off_in_pieces_of_every_size_and_takes_no_data_along)
{
    const std::string rtcm("\xD3\x00\x13\r\nA: b", 9), ok = "ICY 200 OK\r\n";
    const std::pair<std::string, std::string> cases[] = {
        {ok + rtcm, rtcm},
        {ok + "\r\n" + rtcm, rtcm},
        {ok + "Server: NTRIP x/1.0\r\nDate: today\r\n\r\n" + rtcm, rtcm},
        {ok + "$GPGGA,1*00\r\n", "$GPGGA,1*00\r\n"},
        {ok + "\r" + rtcm, "\r" + rtcm},    // an incomplete line end is data
        {ok + "Name: v\rX", "Name: v\rX"},  // no header: the value has a control character
        {ok + "1:2\r\n" + rtcm, "1:2\r\n" + rtcm},
        {ok + "X-Ntrip2_v.1: on\r\n\r\n" + rtcm, rtcm},
        {"icy 200 ok\nServer: x\n\n" + rtcm, rtcm},
        {"ICY 200 OKAY\r\n" + rtcm, rtcm},
        {"ICY 200 OK" + rtcm, rtcm},
        {rtcm + ok, rtcm + ok},  // no answer at all
        {"ICY 200 O", ""},       // cut short
        {"H", ""},
        {"SOURCETABLE 200 OK\r\n", ""},  // a refusal, as are
        {"sourcetable 200 ok\n" + rtcm, ""},
        {"HTTP/1.0 401 Unau", ""},
        {"ERROR - Bad Password", ""},
        {"ERROR - Bad Password" + rtcm, ""},
        {"HTTP/" + std::string(2000, 'x') + rtcm, ""},
        {"ICY 401 Unauthorized\r\nno data", ""},
        {"HTTP/1.0 401 Unauthorized\r\n\r\n", ""},
        {"ERROR - Bad Password\r\n", ""},
        {"HTML" + rtcm, "HTML" + rtcm},                         // and this is none
        {ok + std::string(5000, 'h'), std::string(5000, 'h')},  // a header without an end
        {ok, ""},
    };
    for (const auto &[stream, data] : cases)
        for (std::size_t n = 1; n <= std::min<std::size_t>(stream.size(), 40); ++n)
            ASSERT_EQ(Passed(stream, n), data) << "pieces of " << n << " of " << stream.substr(0, 40);
}

TEST(Caster_Answer, tells_what_a_refusal_says)
{
    const std::pair<const char *, const char *> cases[] = {
        {"ERROR - Bad Password\r\n", "ERROR - Bad Password"},
        {"HTTP/1.0 401 Unau", "HTTP/1.0 401 Unau"},
        {"ICY 4\x01\xD3", "ICY 4"},
        {"ICY 20", "ICY 20"},
        {"ICY 200 OK\r\nServ", ""},
        {"", ""},
    };
    for (const auto &[said, refusal] : cases) {
        host::Caster_Answer answer;
        answer.Expect();
        const auto ignore = [](auto) {};
        answer.Pass({reinterpret_cast<const unsigned char *>(said), std::char_traits<char>::length(said)}, ignore);
        answer.End(ignore);
        EXPECT_EQ(answer.Is_Refusal(), *refusal != 0) << said;
        EXPECT_EQ(answer.Refusal(), refusal);
    }
}

}  // namespace
