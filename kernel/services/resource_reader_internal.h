// The file of numbered texts: its tokens and its grammar, over text in memory. Not installed.
//
//   file     header entry ...
//   header   string string "{"            each string is one word or one literal
//   entry    number "," string ";"        literals with only white space between them are one string
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kernel {

struct Resource_Entry {
    std::int32_t number = 0;
    std::string text;
    int line = 0;  // where its number stands
};

// docs/formats.md describes the file for users. Lines count from 1.
//
// Threads:   one at a time. The callback runs on the reading thread.
// Ownership: copies the text. The callback's message is valid during the call.
// Errors:    false, and Line() tells where; literals that do not end or are too long also go to the callback. After a
//            failure reading has ended. Lack of memory passes as std::bad_alloc.
class Resource_Reader {
public:
    using Callback = void (*)(const char *message);

    static constexpr std::size_t longest_text = 2047;  // [bytes]

    // The bytes of a whole file. On both systems CR LF is LF, the byte 0x1A ends the text, and a byte order mark is
    // skipped. A null callback hears nothing.
    Resource_Reader(std::string_view bytes, Callback callback);

    bool Read_Header();
    // Whether nothing but white space and comments is left. False for a comment without an end, so that the entry
    // which it hides is a broken one.
    bool At_End();
    bool Read_Entry(Resource_Entry &entry);
    // The line of the last token. It is the one that does not fit, unless the text ended: then the last one before.
    int Line() const { return token_.line; }

private:
    enum class Kind : unsigned char { end, number, text, symbol, broken };
    struct Token {
        Kind kind = Kind::end;
        char symbol = 0;
        std::int32_t number = 0;
        std::string text;
        int line = 1;
    };

    bool At(char c) const { return at_ < text_.size() && text_[at_] == c; }
    void Skip_To(std::size_t end);
    void Skip_White_Space();
    bool Skip_Comment();
    void Skip_Space();
    void Next();
    bool Next_Is(Kind kind);
    bool Next_Is(char symbol);
    void Read_Number();
    void Read_Word();
    void Read_Literal();
    void Join_Literals();
    bool Append(char c);
    void Refuse(const char *why);

    std::string text_;
    const Callback callback_;
    std::size_t at_ = 0;
    int line_ = 1;  // of at_
    bool has_open_comment_ = false;
    Token token_;
};

}  // namespace kernel
