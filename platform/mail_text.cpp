#include "platform/mail_text.h"

#include "platform/base64.h"
#include "platform/error.h"
#include "platform/file.h"

#include <algorithm>
#include <array>

namespace platform {

namespace {

constexpr std::size_t longest_address = 320;     // [bytes]: 64 before the '@', 255 behind it
constexpr std::size_t bytes_per_line = 57;       // 76 characters in base64
constexpr std::size_t bytes_per_word = 45;       // 60 characters; an encoded word has at most 75
constexpr std::size_t longest_plain_text = 60;   // [bytes] of a header that is not encoded
constexpr std::string_view boundary = "=_part";  // cannot occur in base64, and all parts are in base64

bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }
bool is_letter_or_digit(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }
bool continues_character(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Only letters, digits, and the other characters given.
bool is_plain(std::string_view text, std::string_view others)
{
    return std::all_of(text.begin(), text.end(),
                       [&](char c) { return is_letter_or_digit(c) || others.find(c) != std::string_view::npos; });
}

// As words of RFC 2047, each on a line of its own and with whole characters only.
std::string encoded_words(std::string_view text)
{
    std::string words;
    while (!text.empty()) {
        std::size_t size = std::min(text.size(), bytes_per_word);
        while (size > 1 && size < text.size() && continues_character(text[size])) --size;
        if (!words.empty()) words += "\n ";
        words.append("=?UTF-8?B?").append(base64(text.substr(0, size))).append("?=");
        text.remove_prefix(size);
    }
    return words;
}

// A text as part of a header: as it is if it is short and has no other characters than those given.
std::string header_text(std::string text, std::string_view plain)
{
    std::replace_if(text.begin(), text.end(), is_control, ' ');
    const bool stays = text.size() <= longest_plain_text && is_plain(text, plain);
    return stays ? text : encoded_words(text);
}

void append_addresses(const Mail &mail, Mail_Role role, std::string_view header, std::string &message)
{
    bool is_first = true;
    for (const Mail_Recipient &recipient : mail.recipients) {
        if (recipient.role != role) continue;
        message.append(is_first ? header : ",\n ").append(mail_address(recipient.address));
        is_first = false;
    }
    if (!is_first) message += '\n';
}

void append_headers(const Mail &mail, std::string &message)
{
    if (const std::string_view sender = mail_address(mail.sender_address); !sender.empty()) {
        message += "From: ";
        if (!mail.sender_name.empty()) message.append(header_text(mail.sender_name, " ")).append("\n ");
        message.append("<").append(sender).append(">\n");
    }
    append_addresses(mail, Mail_Role::to, "To: ", message);
    append_addresses(mail, Mail_Role::cc, "Cc: ", message);
    message.append("Subject: ").append(header_text(mail.subject, " .,;:!?+-_/()[]%&#*'\"@")).append("\n");
    message += "MIME-Version: 1.0\n";
}

void append_base64(std::string_view bytes, std::string &message)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), bytes_per_line)))
        message.append(base64(bytes.substr(0, bytes_per_line))).append("\n");
}

std::string with_crlf(std::string_view text)
{
    std::string lines;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) lines += '\r';
        lines += text[i];
    }
    return lines;
}

void append_text(const Mail &mail, std::string &message)
{
    message += "Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: base64\n\n";
    append_base64(with_crlf(mail.text), message);
}

// RFC 2231; the plain form, which every reader knows, where it suffices.
std::string file_name_parameter(std::string_view path)
{
    const std::string_view name = path.substr(path.find_last_of("/\\") + 1);
    if (name.size() <= longest_plain_text && is_plain(name, " .-_")) return "filename=\"" + std::string(name) + "\"";
    constexpr char digits[] = "0123456789ABCDEF";
    std::string parameter = "filename*=UTF-8''";
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_letter_or_digit(c) || c == '.')
            parameter += c;
        else
            parameter.append(1, '%').append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
    }
    return parameter;
}

Mail_Result append_file(const std::string &path, std::string &message)
{
    const std::shared_ptr<File> file = File::open(path.c_str(), File::Mode::read_shared);
    if (!file) {
        const std::uint32_t error = last_error();
        const bool is_missing = error == error_not_found || error == error_path_not_found;
        return is_missing ? mail_attachment_not_found : mail_attachment_not_opened;
    }
    message.append("Content-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n");
    message.append("Content-Disposition: attachment;\n ").append(file_name_parameter(path)).append("\n\n");
    std::array<char, 512 * bytes_per_line> block;
    std::size_t got = 0;
    do {
        if (!file->read(block.data(), block.size(), got)) return mail_attachment_not_opened;
        append_base64({block.data(), got}, message);
    } while (got == block.size());
    return mail_sent;
}

// The text and the files as parts of one message.
Mail_Result append_parts(const Mail &mail, std::string &message)
{
    message.append("Content-Type: multipart/mixed; boundary=\"").append(boundary).append("\"\n\n");
    message.append("--").append(boundary).append("\n");
    append_text(mail, message);
    for (const std::string &path : mail.attachments) {
        message.append("--").append(boundary).append("\n");
        if (const Mail_Result result = append_file(path, message); result != mail_sent) return result;
    }
    message.append("--").append(boundary).append("--\n");
    return mail_sent;
}

}  // namespace

std::string_view mail_address(std::string_view given)
{
    constexpr std::string_view prefix = "SMTP:", refused = "()<>,;:\\\"[] ";
    const auto trim = [&given] {
        given.remove_prefix(std::min(given.find_first_not_of(" \t"), given.size()));
        given.remove_suffix(given.size() - (given.find_last_not_of(" \t") + 1));
    };
    trim();
    const bool has_prefix =
        given.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), given.begin(), [](char p, char c) {
            return p == c || (c >= 'a' && c <= 'z' && p == c - 'a' + 'A');
        });
    if (has_prefix) {
        given.remove_prefix(prefix.size());
        trim();
    }
    const bool is_address = !given.starts_with('-') && given.size() <= longest_address &&
                            given.find_first_of(refused) == std::string_view::npos &&
                            std::none_of(given.begin(), given.end(), is_control);
    return is_address ? given : std::string_view();
}

Mail_Result mail_text(const Mail &mail, std::string &message)
{
    const auto is_none = [](const Mail_Recipient &recipient) { return mail_address(recipient.address).empty(); };
    if (mail.recipients.empty() || std::any_of(mail.recipients.begin(), mail.recipients.end(), is_none))
        return mail_bad_recipients;
    append_headers(mail, message);
    if (!mail.attachments.empty()) return append_parts(mail, message);
    append_text(mail, message);
    return mail_sent;
}

}  // namespace platform
