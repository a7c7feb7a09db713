// A variable of the environment for the length of a test.
#pragma once

#include <cstdlib>
#include <string>

class Environment_Setting {
public:
    Environment_Setting(const char *name, const std::string &value) : name_(name)
    {
        if (const char *former = std::getenv(name)) former_ = former;
        Set(value);
    }
    ~Environment_Setting() { Set(former_); }
    Environment_Setting(const Environment_Setting &) = delete;
    Environment_Setting &operator=(const Environment_Setting &) = delete;

private:
    void Set(const std::string &value) const  // an empty one is none
    {
#ifdef _WIN32
        _putenv_s(name_, value.c_str());
#else
        value.empty() ? unsetenv(name_) : setenv(name_, value.c_str(), 1);
#endif
    }

    const char *name_;
    std::string former_;
};
