#pragma once

#include <QByteArray>

#include <functional>
#include <optional>

// The system's version as three numbers. Linux has no single system version; the numbers of
// VERSION_ID in os-release stand in for it ("12" is 12.0.0, "22.04" is 22.4.0).
namespace SystemVersion {

struct Parts
{
    int major = 0;
    int minor = 0;
    int bugFix = 0;
};

// nullopt when the version cannot be read (any of the three numbers failing counts as a failure).
std::optional<Parts> read();
// Parses the VERSION_ID line of an os-release text.
std::optional<Parts> parseOsRelease(const QByteArray &text);

// Nibble packing: (M div 10) x 4096 + (M mod 10) x 256 + m x 16 + b. A minor or bug-fix number of
// 16 or more spills into the next nibble on purpose.
qint64 packed(const Parts &p);

// Test seam: where read() takes its numbers from (nullptr restores os-release).
void setSourceForTesting(std::function<std::optional<Parts>()> source);

} // namespace SystemVersion
