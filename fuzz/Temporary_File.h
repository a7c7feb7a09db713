// An input as a file, for readers that take the name of one.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

class Temporary_File {
public:
    explicit Temporary_File(std::string_view bytes)
    {
        std::ofstream file(path_, std::ios::binary);
        file << bytes;
        if (!file.flush()) std::abort();
    }
    ~Temporary_File()
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    Temporary_File(const Temporary_File &) = delete;
    Temporary_File &operator=(const Temporary_File &) = delete;
    std::string Name() const { return path_.string(); }

private:
    static std::filesystem::path Unique()
    {
        static const unsigned int process = std::random_device{}();
        return std::filesystem::temp_directory_path() / ("gnss_kernel_fuzz." + std::to_string(process));
    }
    const std::filesystem::path path_ = Unique();
};
