// A registry for the length of a test: empty, and never the machine's own.
#pragma once

#include "tests/support/environment.h"
#include "tests/support/folder.h"

#ifdef _WIN32
#include <windows.h>
#undef near  // two words that it takes away
#undef far

#include <atomic>
#include <cstdlib>

// This process sees two keys below "Software" of the user as the hives of the machine and of the user.
class Own_Registry {
public:
    Own_Registry()
    {
        static std::atomic<int> count{0};
        key_ =
            L"Software\\gnss-kernel-tests-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
        for (const Hive &hive : hives) {
            HKEY key = nullptr;
            if (RegCreateKeyExW(HKEY_CURRENT_USER, (key_ + hive.name).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                &key, nullptr) != ERROR_SUCCESS ||
                RegOverridePredefKey(hive.root, key) != ERROR_SUCCESS)
                std::abort();
            RegCloseKey(key);
        }
    }
    ~Own_Registry()
    {
        for (const Hive &hive : hives) RegOverridePredefKey(hive.root, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, key_.c_str());
    }
    Own_Registry(const Own_Registry &) = delete;
    Own_Registry &operator=(const Own_Registry &) = delete;

private:
    struct Hive {
        HKEY root;
        const wchar_t *name;
    };
    static inline const Hive hives[] = {{HKEY_LOCAL_MACHINE, L"\\machine"}, {HKEY_CURRENT_USER, L"\\user"}};

    std::wstring key_;
};
#else
class Own_Registry {
public:
    std::string Machine() const { return folder_ / "machine.db"; }
    std::string User() const { return folder_ / "user.db"; }

private:
    Test_Folder folder_;
    Environment_Setting setting_{"GNSS_KERNEL_REGISTRY_DIR", folder_ / ""};
};
#endif
