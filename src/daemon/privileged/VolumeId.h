#pragma once

#include "MountTable.h"

#include <string>
#include <string_view>

// Identity of the file system behind a mount, for the privileged helper: the canonical UUID text
// the rest of the system stores in PrefsProtectedDisks. Empty when there is none.
namespace volumeid {

std::string uuidOf(const mounttable::Entry &entry);

// Upper-case; 32 hex digits grouped 8-4-4-4-12; other serials upper-cased as they are.
std::string canonical(std::string_view raw);

} // namespace volumeid
