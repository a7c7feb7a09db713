// The options of a command line: typed, with defaults, limits and a line of help each.
#pragma once

#include "kernel/base/kernel_api.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kernel {

class CL_Option;
class CL_Words;

// What a program can be told on its command line. The program declares its options and then parses:
//
//   Command_Line line("reader", "Prints the epochs of a recording.");
//   CL_Int port(line, 'p', "port", "TCP port to listen on", 2101, 1, 65535);
//   CL_Bool quiet(line, 'q', "quiet", "print no epochs");
//   CL_Words files(line, "FILE", "recordings", 1);
//   switch (line.Parse(argc, argv)) {
//   case Command_Line::Outcome::run: break;
//   case Command_Line::Outcome::help: std::fputs(line.Listing(), stdout); return 0;
//   case Command_Line::Outcome::wrong: std::fprintf(stderr, "%s\n", line.Error()); return 2;
//   }
//
// A value follows its option as the next word, after '=', or directly behind a single letter: "--port 5015",
// "--port=5015", "-p 5015", "-p=5015", "-p5015". The next word is taken as the value whatever it begins with, so that
// negative numbers need no quoting. Letters without values may share a word: "-qv". "--" ends the options. A word "-"
// is no option. Each option may be given once. "-h" and "--help" are always there and end the parsing.
//
// "@NAME" stands for the words in the file NAME: separated by white space, with "..." or '...' around a word that
// contains white space, and '#' at the start of a word for a comment up to the end of the line. A backslash is an
// ordinary character, a zero byte is refused. Such files may name others, eight deep. A value is never taken for a
// file, nor is a word behind "--".
//
// Threads:   one thread.
// Ownership: knows its options by address: they outlive the last call of Parse and Listing. Names and help texts are
//            not copied; they are constants as a rule. Words are copied.
// Errors:    Error() says which word is wrong and why, with file and line if it comes from a file. Two options of one
//            name are a mistake in the program and are reported by each Parse. Memory shortage counts as a wrong line.
class KERNEL_API Command_Line {
public:
    enum class Outcome {
        run,    // all words are understood; the options have their values
        help,   // the listing is wanted
        wrong,  // see Error(); do not use the options' values
    };

    Command_Line(const char *program, const char *purpose);
    Command_Line(const Command_Line &) = delete;
    Command_Line &operator=(const Command_Line &) = delete;
    ~Command_Line();

    // argv[0] is skipped. Each call begins with the defaults.
    Outcome Parse(int argc, const char *const *argv);
    // The last call's error, one line without a line feed; "" if there was none. Valid until the next call.
    const char *Error() const { return error_.c_str(); }
    // Usage, purpose and options with limits and defaults, lines of at most 80 columns where the words allow it. Valid
    // until the next call; "" without memory.
    const char *Listing();

private:
    friend class CL_Option;
    friend class CL_Words;
    class Reader;

    CL_Option *Find(std::string_view name) const;
    CL_Option *Find(char letter) const;
    std::string Nearest(std::string_view name) const;
    bool Names_Are_Unique();

    const char *const program_;
    const char *const purpose_;
    std::vector<CL_Option *> options_;
    CL_Words *words_ = nullptr;
    std::string error_;
    std::string listing_;
};

// The base of all options.
//
// Threads:   as Command_Line.
// Ownership: as Command_Line.
// Errors:    none.
class KERNEL_API CL_Option {
public:
    CL_Option(const CL_Option &) = delete;
    CL_Option &operator=(const CL_Option &) = delete;
    virtual ~CL_Option();

    bool Is_Given() const { return is_given_; }  // in the line that was parsed last
    const char *Get_Name() const { return name_; }
    void Require() { is_required_ = true; }  // a line without this option is wrong

protected:
    // letter: '\0' for none. name: without dashes.
    CL_Option(Command_Line &line, char letter, const char *name, const char *help);

    virtual void Begin() = 0;  // back to the default
    // Takes the value. False: `why` says what is wrong with it ("is no number").
    virtual bool Take(std::string_view value, std::string &why) = 0;
    virtual std::string Value_Name() const = 0;  // in the listing; "" for an option without a value
    virtual std::string Remark() const = 0;      // limits and default, or ""

private:
    friend class Command_Line;

    const char letter_;
    const char *const name_;
    const char *const help_;
    bool is_given_ = false;
    bool is_required_ = false;
};

// A switch: false unless it is given. A value after '=' is "true" or "false".
//
// Threads:   as Command_Line.
// Ownership: as Command_Line.
// Errors:    as Command_Line.
class KERNEL_API CL_Bool : public CL_Option {
public:
    CL_Bool(Command_Line &line, char letter, const char *name, const char *help);
    operator bool() const { return value_; }

private:
    void Begin() override { value_ = false; }
    bool Take(std::string_view value, std::string &why) override;
    std::string Value_Name() const override { return ""; }
    std::string Remark() const override { return ""; }

    bool value_ = false;
};

// A whole number, decimal or with "0x", from `least` to `most`.
//
// Threads:   as Command_Line.
// Ownership: as Command_Line.
// Errors:    as Command_Line. The default itself need not keep the limits.
class KERNEL_API CL_Int : public CL_Option {
public:
    CL_Int(Command_Line &line, char letter, const char *name, const char *help, long long value, long long least,
           long long most);
    operator long long() const { return value_; }

private:
    void Begin() override { value_ = default_; }
    bool Take(std::string_view value, std::string &why) override;
    std::string Value_Name() const override { return "N"; }
    std::string Remark() const override;

    const long long default_, least_, most_;
    long long value_;
};

// A number, with a point whatever the locale, from `least` to `most`. Infinity and NaN are no numbers here.
//
// Threads:   as Command_Line.
// Ownership: as Command_Line.
// Errors:    as CL_Int.
class KERNEL_API CL_Double : public CL_Option {
public:
    CL_Double(Command_Line &line, char letter, const char *name, const char *help, double value, double least,
              double most);
    operator double() const { return value_; }

private:
    void Begin() override { value_ = default_; }
    bool Take(std::string_view value, std::string &why) override;
    std::string Value_Name() const override { return "X"; }
    std::string Remark() const override;

    const double default_, least_, most_;
    double value_;
};

// A text. With choices, one of them, letter case included.
//
// Threads:   as Command_Line.
// Ownership: the default and the choices are not copied. Get's text is valid until the next Parse.
// Errors:    as Command_Line.
class KERNEL_API CL_String : public CL_Option {
public:
    CL_String(Command_Line &line, char letter, const char *name, const char *help, const char *value,
              std::vector<const char *> choices = {});
    const char *Get() const { return value_.c_str(); }

private:
    void Begin() override { value_ = default_; }
    bool Take(std::string_view value, std::string &why) override;
    std::string Value_Name() const override { return "TEXT"; }
    std::string Remark() const override;

    const char *const default_;
    const std::vector<const char *> choices_;
    std::string value_;
};

// The words that belong to no option. A line without such an object takes none.
//
// Threads:   as Command_Line.
// Ownership: as Command_Line. The texts are valid until the next Parse.
// Errors:    as Command_Line; fewer than `least` or more than `most` words are a wrong line.
class KERNEL_API CL_Words {
public:
    static constexpr std::size_t any_number = ~std::size_t{0};

    CL_Words(Command_Line &line, const char *name, const char *help, std::size_t least = 0,
             std::size_t most = any_number);
    CL_Words(const CL_Words &) = delete;
    CL_Words &operator=(const CL_Words &) = delete;

    std::size_t Count() const { return words_.size(); }
    const char *Get(std::size_t i) const { return i < words_.size() ? words_[i].c_str() : nullptr; }

private:
    friend class Command_Line;

    const char *const name_;
    const char *const help_;
    const std::size_t least_, most_;
    std::vector<std::string> words_;
};

}  // namespace kernel
