#pragma once

#include <string>
#include <string_view>

// Printable ASCII rendering of bytes for log lines: printable ASCII as it is, anything else
// (control characters, a backslash, bytes of other encodings) as \xHH, so that a hostile name can
// neither forge nor break a log entry, and the bytes can still be told apart.
std::string printable(std::string_view bytes);
