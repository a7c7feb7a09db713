#include "user_file.h"

#include <cstdio>
#include <fstream>

#ifdef HAVE_CRYPT

#include <algorithm>
#include <crypt.h>
#include <memory>

namespace {

// "" when it fails. The setting is a hash, or a new salt.
std::string Hashed(const char *password, const std::string &setting)
{
    const auto data = std::make_unique<crypt_data>();
    const char *const hash = crypt_r(password, setting.c_str(), data.get());
    const std::string result = hash && hash[0] != '*' ? hash : "";
    volatile auto *const bytes = reinterpret_cast<volatile unsigned char *>(data.get());
    std::fill_n(bytes, sizeof *data, static_cast<unsigned char>(0));  // it holds the password
    return result;
}

std::string New_Salt()
{
    char salt[CRYPT_GENSALT_OUTPUT_SIZE];
    return crypt_gensalt_rn(nullptr, 0, nullptr, 0, salt, sizeof salt) ? salt : "";
}

void Warn() {}

}  // namespace

#else

namespace {

std::string Hashed(const char *password, const std::string &) { return password; }
std::string New_Salt() { return ""; }
void Warn() { std::fputs("warning: passwords in the file of users are plain text on this system\n", stderr); }

}  // namespace

#endif

bool User_File::Knows(const std::string &name, const char *password) const
{
    std::ifstream file(path_);
    if (!file) std::fprintf(stderr, "cannot read %s\n", path_.c_str());
    Warn();
    std::string stored;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.compare(0, name.size() + 1, name + ":") == 0) stored = line.substr(name.size() + 1);
    }
    const std::string hash = Hashed(password, stored.empty() ? New_Salt() : stored);
    return !stored.empty() && hash == stored;
}

std::string User_File::Line(const std::string &name, const std::string &password)
{
    const bool fits = !name.empty() && name.find_first_of(":\r\n") == std::string::npos && !password.empty();
    Warn();
    const std::string hash = fits ? Hashed(password.c_str(), New_Salt()) : "";
    return hash.empty() ? "" : name + ":" + hash + "\n";
}
