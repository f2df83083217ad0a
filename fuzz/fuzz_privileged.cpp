// The privileged helper's parsers, fed arbitrary bytes: the request datagrams and the mount table.
// Whatever decodes must survive a round trip.

#include "MountTable.h"
#include "Printable.h"
#include "Protocol.h"
#include "SafeRemove.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char *>(data), size);

    if (const auto request = privileged::decodeRequest(input)) {
        const auto again = privileged::decodeRequest(privileged::encode(*request));
        if (!again || again->op != request->op || again->first != request->first ||
            again->second != request->second)
            std::abort();
        saferemove::isCleanRelativePath(request->second);
    }
    if (const auto response = privileged::decodeResponse(input)) {
        const auto again = privileged::decodeResponse(privileged::encode(*response));
        if (!again || again->status != response->status || again->error != response->error ||
            again->message != response->message)
            std::abort();
    }
    for (const auto &entry : mounttable::parse(input))
        mounttable::isEligible(entry.mountPoint);
    printable(input);
    return 0;
}
