#pragma once

// Reader and writer for the typed-stream archives that hold a cache folder's information file:
// a dictionary with string keys and integer or string values. Plain C++ so it can be fuzzed and
// reused without Qt.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace typedstream {

using Value = std::variant<std::int64_t, std::string>; // NSNumber (integer) or NSString

struct Entry
{
    std::string key;
    Value value;

    bool operator==(const Entry &) const = default;
};

using Dictionary = std::vector<Entry>; // insertion order kept for writing

enum class ByteOrder { Little, Big };

// Archive of a dictionary with string keys and integer/string values, as the original platform
// writes it. Keys are written as given: the caller keeps them unique.
std::string encodeDictionary(const Dictionary &dict, ByteOrder order = ByteOrder::Little);

// nullopt for anything malformed, truncated, oversized, with trailing bytes, or of an
// unsupported shape (nested containers, non-integer numbers, duplicate keys, ...).
std::optional<Dictionary> decodeDictionary(std::string_view bytes);

// Convenience: the integer under key, if present and an integer.
std::optional<std::int64_t> integerFor(const Dictionary &dict, std::string_view key);

inline constexpr std::size_t kMaxArchiveSize = 4096;

} // namespace typedstream
