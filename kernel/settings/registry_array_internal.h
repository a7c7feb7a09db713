// The bytes of the registry's arrays: texts one after another, or words of 4 bytes. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kernel {

// The texts of a REG_MULTI_SZ value: each with its final zero, and one zero more at the end. All operations take a
// value that Completed has put into that form; no bytes, and a single zero, are no texts.
//
// Threads:   none of them keeps anything.
// Ownership: the caller's strings.
// Errors:    std::bad_alloc.
namespace registry_texts {

std::string Completed(std::string_view data);
std::size_t Count(std::string_view texts);
// The text at an index below Count.
std::string_view At(std::string_view texts, std::size_t index);
// Length of the value after Set [bytes].
std::uint64_t Size_After_Set(std::string_view texts, std::size_t index, std::string_view text);
// Replaces the text; behind the last one, empty texts fill the gap.
void Set(std::string &texts, std::size_t index, std::string_view text);
void Remove(std::string &texts, std::size_t index);

}  // namespace registry_texts

// The words of a REG_BINARY value, little-endian. A last word of less than 4 bytes counts, its missing bytes are 0.
//
// Threads, Ownership, Errors: as above.
namespace registry_words {

constexpr std::size_t Word_Size = 4;  // [bytes]

std::size_t Count(std::string_view data);
std::uint32_t At(std::string_view data, std::size_t index);
std::uint64_t Size_After_Set(std::string_view data, std::size_t index);
void Set(std::string &data, std::size_t index, std::uint32_t word);
void Remove(std::string &data, std::size_t index);
std::string Bytes(std::uint32_t word);

}  // namespace registry_words

}  // namespace kernel
