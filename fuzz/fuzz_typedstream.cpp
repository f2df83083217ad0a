// Decodes arbitrary bytes as an information-file archive; whatever decodes must survive a round
// trip through the writer in both byte orders unchanged.

#include "cache/TypedStream.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace typedstream;
    const auto first =
        decodeDictionary(std::string_view(reinterpret_cast<const char *>(data), size));
    if (!first) return 0;
    for (const ByteOrder order : {ByteOrder::Little, ByteOrder::Big}) {
        const std::string bytes = encodeDictionary(*first, order);
        const auto second = decodeDictionary(bytes);
        // References let a small archive stand for a larger one, whose copy may exceed the limit.
        if (bytes.size() > kMaxArchiveSize) {
            if (second) std::abort();
            continue;
        }
        if (!second || *second != *first) std::abort();
    }
    return 0;
}
