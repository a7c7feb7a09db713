// A folder for the files of one test, and whole files in one call.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// The standard library takes a plain string for the system's own encoding, which on Windows is not UTF-8.
inline std::filesystem::path Utf8_Path(const std::string &utf8) { return std::u8string(utf8.begin(), utf8.end()); }

class Test_Folder {
public:
    Test_Folder()
    {
        static std::atomic<int> count{0};
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        path_ = std::filesystem::temp_directory_path() /
                ("kernel_test_" + std::to_string(now) + "_" + std::to_string(++count));
        std::filesystem::create_directories(path_);
    }
    ~Test_Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Test_Folder(const Test_Folder &) = delete;
    Test_Folder &operator=(const Test_Folder &) = delete;

    std::string operator/(const std::string &name) const
    {
        const std::u8string path = (path_ / Utf8_Path(name)).u8string();
        return {path.begin(), path.end()};
    }
    // Writes a file and answers its path.
    std::string Write(const std::string &name, const std::string &bytes) const
    {
        std::ofstream(path_ / Utf8_Path(name), std::ios::binary) << bytes;
        return *this / name;
    }
    // A name of more than 260 characters, in folders that exist.
    std::string Long_Name() const
    {
        std::filesystem::path path = path_;
        for (const char letter : {'a', 'b', 'c'}) std::filesystem::create_directory(path /= std::string(90, letter));
        return (path / "long.bin").string();
    }

private:
    std::filesystem::path path_;
};

inline std::string Whole_File(const std::string &name)
{
    std::ifstream file(Utf8_Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Bytes in which every position shows: no block of 4096 is like another.
inline std::string Pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 2654435761u) >> 13);
    return bytes;
}
