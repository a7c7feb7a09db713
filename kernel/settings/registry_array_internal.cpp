#include "kernel/settings/registry_array_internal.h"

#include <algorithm>

namespace kernel {

namespace registry_texts {

namespace {

// The position behind `index` texts, which must be there.
std::size_t Start_Of(std::string_view texts, std::size_t index)
{
    std::size_t at = 0;
    for (; index > 0; --index) at = texts.find('\0', at) + 1;
    return at;
}

}  // namespace

std::string Completed(std::string_view data)
{
    std::string texts(data);
    if (texts.empty() || texts == std::string_view("\0", 1)) return std::string(1, '\0');
    while (!texts.ends_with(std::string_view("\0\0", 2))) texts += '\0';
    return texts;
}

std::size_t Count(std::string_view texts)
{
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), '\0')) - 1;
}

std::string_view At(std::string_view texts, std::size_t index)
{
    const std::size_t start = Start_Of(texts, index);
    return texts.substr(start, texts.find('\0', start) - start);
}

std::uint64_t Size_After_Set(std::string_view texts, std::size_t index, std::string_view text)
{
    const std::size_t count = Count(texts);
    if (index < count) return texts.size() - At(texts, index).size() + text.size();
    return std::uint64_t{texts.size()} + (index - count) + text.size() + 1;
}

void Set(std::string &texts, std::size_t index, std::string_view text)
{
    const std::size_t count = Count(texts);
    if (index < count) {
        texts.replace(Start_Of(texts, index), At(texts, index).size(), text);
        return;
    }
    texts.pop_back();
    texts.append(index - count, '\0').append(text).append(2, '\0');
}

void Remove(std::string &texts, std::size_t index) { texts.erase(Start_Of(texts, index), At(texts, index).size() + 1); }

}  // namespace registry_texts

namespace registry_words {

std::size_t Count(std::string_view data) { return (data.size() + Word_Size - 1) / Word_Size; }

std::uint32_t At(std::string_view data, std::size_t index)
{
    std::uint32_t word = 0;
    const std::size_t start = index * Word_Size;
    for (std::size_t i = start; i < std::min(start + Word_Size, data.size()); ++i)
        word |= std::uint32_t{static_cast<unsigned char>(data[i])} << (8 * (i - start));
    return word;
}

std::uint64_t Size_After_Set(std::string_view data, std::size_t index)
{
    return std::max<std::uint64_t>(data.size(), (std::uint64_t{index} + 1) * Word_Size);
}

void Set(std::string &data, std::size_t index, std::uint32_t word)
{
    data.resize(static_cast<std::size_t>(Size_After_Set(data, index)), '\0');
    data.replace(index * Word_Size, Word_Size, Bytes(word));
}

void Remove(std::string &data, std::size_t index) { data.erase(index * Word_Size, Word_Size); }

std::string Bytes(std::uint32_t word)
{
    std::string bytes;
    for (unsigned shift = 0; shift < 8 * Word_Size; shift += 8) bytes += static_cast<char>(word >> shift & 0xFF);
    return bytes;
}

}  // namespace registry_words

}  // namespace kernel
