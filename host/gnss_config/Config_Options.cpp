#include "host/gnss_config/Config_Options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <string_view>

namespace host {

namespace {

const char description[] =
    R"(Lists, reads, writes, deletes, exports and imports values of the registry, where programs keep their settings.

KEY is a root and a path: HKCU\SOFTWARE\MORVALEN\READER\Station. Roots: HKCU (the user's), HKLM (the machine's), HKCR,
HKU, or their long names such as HKEY_CURRENT_USER. NAME "" is the default value of a key.
)";

const char footer[] = R"(Types for write:
  string, expand    a text (REG_SZ, REG_EXPAND_SZ)
  strings           any number of texts (REG_MULTI_SZ)
  password          a text, stored scrambled; with "-" as VALUE it is the first line of standard input
  double            a number, stored as text
  dword, word, byte, int, long, bool
                    a number in the range of 32, 16 and 8 bits, or with sign; true or false (REG_DWORD)
  big-endian        as dword (REG_DWORD_BIG_ENDIAN)
  words             any number of dwords (REG_BINARY)
  binary            bytes as pairs of hexadecimal digits (REG_BINARY)
With --index, write and read mean one element of an array: of texts for string and double, of words for dword, word,
byte, int, long and bool; the other types have none. Numbers may begin with 0x. Words that begin with a dash and are no
number stand behind "--".

Export writes every byte such that import reads it back: docs/formats.md has the form. FILE takes its place when it is
whole: a failure leaves the old one. Import reads the whole text before it changes anything, and deletes nothing.
Passwords are exported as they are stored, scrambled: a new FILE is for its user alone, an old one keeps its rights.

Exit status: 0 all went well; 1 something is not there, or failed; 2 wrong usage.)";

struct Words {
    std::string key;
};

void Declare_Key(CLI::App &app, Words &words)
{
    app.add_option("KEY", words.key, "Root and path")->option_text("KEY")->required();
}

void Declare(CLI::App &app, Config_Options &options, Words &words)
{
    CLI::App &list = *app.add_subcommand("list", "Shows the values of a key, and the keys below it");
    Declare_Key(list, words);
    list.add_flag("-r,--recursive", options.recursive, "Also the values of the keys below");

    CLI::App &read = *app.add_subcommand("read", "Shows a value's data");
    Declare_Key(read, words);
    read.add_option("NAME", options.name, "The value")->option_text("NAME")->required();
    CLI::Option *index = read.add_option("--index", options.index, "One element of an array, from 0");
    index->option_text("N")->check(CLI::Range(0L, 99999L));
    read.add_flag("--password", options.password, "Shows the clear text of a password")->excludes(index);

    CLI::App &write = *app.add_subcommand("write", "Writes a value; creates the key");
    Declare_Key(write, words);
    write.add_option("NAME", options.name, "The value")->option_text("NAME")->required();
    write.add_option("VALUE", options.values, "What to write")->option_text("VALUE...");
    write.add_option("-t,--type", options.type, "See below; string when absent")
        ->option_text("TYPE")
        ->check(CLI::IsMember({"string", "expand", "strings", "password", "double", "dword", "word", "byte", "int",
                               "long", "bool", "big-endian", "words", "binary"}));
    write.add_option("--index", options.index, "One element of an array, from 0")
        ->option_text("N")
        ->check(CLI::Range(0L, 99999L));

    CLI::App &remove = *app.add_subcommand("delete", "Deletes a value, or a key with all that is below it");
    Declare_Key(remove, words);
    CLI::Option *name = remove.add_option("NAME", options.name, "The value")->option_text("NAME");
    remove.add_flag("--whole-key", options.whole_key, "Deletes the key, its values, and all keys below it")
        ->excludes(name);

    CLI::App &export_text = *app.add_subcommand("export", "Writes a key and all below it as text");
    Declare_Key(export_text, words);
    export_text.add_option("FILE", options.file, "Absent or -: standard output")->option_text("FILE");

    CLI::App &import_text = *app.add_subcommand("import", "Writes the values of such a text");
    import_text.add_option("FILE", options.file, "Absent or -: standard input")->option_text("FILE");
    app.require_subcommand(1);
    app.set_version_flag("--version", "gnss_config " KERNEL_VERSION);
}

void Check(const CLI::App &app, const Words &words, Config_Options &options)
{
    constexpr std::pair<const char *, Config_Command> commands[] = {
        {"list", Config_Command::list},          {"read", Config_Command::read},
        {"write", Config_Command::write},        {"delete", Config_Command::remove},
        {"export", Config_Command::export_text}, {"import", Config_Command::import_text},
    };
    for (const auto &[name, command] : commands)
        if (app.got_subcommand(name)) options.command = command;
    if (options.command != Config_Command::import_text && !Parse_Key(words.key, options.key))
        throw CLI::ValidationError("KEY", "begins with no root: " + words.key);
    if (options.command == Config_Command::remove && !options.whole_key &&
        app.get_subcommand("delete")->count("NAME") == 0)
        throw CLI::RequiresError("delete", "NAME, or --whole-key");
    const bool is_list = options.type == "strings" || options.type == "words";
    if (options.command == Config_Command::write && !is_list && options.values.size() != 1)
        throw CLI::ValidationError("VALUE", "one is needed for type " + options.type);
    constexpr std::string_view whole_types[] = {"strings", "words", "expand", "password", "big-endian", "binary"};
    if (options.command == Config_Command::write && options.index >= 0 &&
        std::find(std::begin(whole_types), std::end(whole_types), options.type) != std::end(whole_types))
        throw CLI::ValidationError("--index", "type " + options.type + " is not that of an element");
}

}  // namespace

bool Parse_Config_Line(int argc, const char *const *argv, Config_Options &options, int &exit)
{
    CLI::App app(description, "gnss_config");
    app.footer(footer);
    app.allow_windows_style_options(false);
    Words words;
    Declare(app, options, words);
    try {
        app.parse(argc, argv);
        Check(app, words, options);
        return true;
    } catch (const CLI::ParseError &end) {
        exit = app.exit(end, std::cout, std::cerr) == 0 ? config_fine : config_usage;
        std::cout.flush();
        if (!std::cout) exit = config_failed;
        return false;
    }
}

}  // namespace host
