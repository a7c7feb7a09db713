// Makes messages bit by bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Bit fields, most significant bit first.
class Bit_Writer {
public:
    Bit_Writer &Put(unsigned int n, std::int64_t value)
    {
        for (unsigned int i = n; i-- > 0; ++size_) {
            if (size_ % 8 == 0) bytes_.push_back(0);
            if (value >> i & 1) bytes_.back() = static_cast<unsigned char>(bytes_.back() | 0x80 >> size_ % 8);
        }
        return *this;
    }
    Bit_Writer &Text(const std::string &text)
    {
        Put(8, static_cast<std::int64_t>(text.size()));
        for (const char c : text) Put(8, c);
        return *this;
    }
    Bit_Writer &Zeros(int bytes)
    {
        for (int i = 0; i < bytes; ++i) Put(8, 0);
        return *this;
    }
    const std::vector<unsigned char> &Done() const { return bytes_; }

private:
    std::vector<unsigned char> bytes_;
    std::size_t size_ = 0;  // [bits]
};
