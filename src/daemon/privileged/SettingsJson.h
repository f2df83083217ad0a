#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A small, strict JSON reader for the privileged helper, which must not link Qt yet has to know
// which volumes the user protects. The settings file belongs to the user, so its content is
// hostile input: nesting, size and every escape are bounded and checked, and anything that is not
// exactly one JSON value (RFC 8259) is rejected as a whole.
namespace settingsjson {

struct Value
{
    enum class Type { Null, Bool, Number, String, Array, Object };
    Type type = Type::Null;
    bool boolean = false;
    std::string text;               // the number as written, or the string's UTF-8 bytes
    std::vector<Value> items;       // array elements, or object member values
    std::vector<std::string> names; // object member names, index for index with items

    // The last member of that name (later duplicates win), or null.
    const Value *member(std::string_view key) const;
};

inline constexpr std::size_t kMaxDepth = 64;
inline constexpr std::size_t kMaxInput = 16u << 20;

std::optional<Value> parse(std::string_view text);

// The keys of the "PrefsProtectedDisks" dictionary of a settings document: nullopt when the
// document is not a JSON object, empty when the key is absent or not a dictionary.
std::optional<std::vector<std::string>> protectedDiskKeys(std::string_view text);

} // namespace settingsjson
