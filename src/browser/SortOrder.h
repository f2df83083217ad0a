#pragma once

#include <cstdint>

// How the contents list is ordered: by the item's name, by when it was moved to the cache (its
// time folder's name) or by the folder it was deleted from, then by name; either way round.
struct SortOrder
{
    enum Key : std::uint8_t { Name, Time, Origin };
    Key key = Name;
    bool descending = false;

    // The window keeps the order as one integer: bit 0 by time, bit 2 by origin (it wins over
    // bit 0), bit 1 descending; the bits above the low byte mean nothing.
    static constexpr SortOrder fromCode(std::int64_t code)
    {
        return {(code & 4) ? Origin : (code & 1) ? Time : Name, (code & 2) != 0};
    }
    constexpr int code() const
    {
        return (key == Origin ? 4 : key == Time ? 1 : 0) | (descending ? 2 : 0);
    }

    friend constexpr bool operator==(SortOrder, SortOrder) = default;
};
