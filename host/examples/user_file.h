// A file of users: lines NAME:HASH, where HASH is salted, as crypt(3) makes it. Where the system has no crypt
// (Windows), the password itself stands there, and using the file warns of that.
#pragma once

#include <string>

class User_File {
public:
    explicit User_File(std::string path = "") : path_(std::move(path)) {}

    // Reads the file each time, so that changes need no restart. An unknown name takes as long as a wrong password.
    bool Knows(const std::string &name, const char *password) const;
    // The line for a user; "" when name or password cannot stand in the file.
    static std::string Line(const std::string &name, const std::string &password);

private:
    std::string path_;
};
