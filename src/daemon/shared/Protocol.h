#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The one request the agent may send to the privileged helper, and its answers. One request
// per datagram on a SOCK_SEQPACKET socket pair, so a message is never split or merged.
//
//   request:  'S' 1 op  u16 len  bytes  u16 len  bytes      (little-endian lengths)
//   response: 'S' 1 status  i32 errno  u16 len  message
//
// Decoding is strict: unknown versions or operations, trailing bytes, NUL bytes inside a path
// and paths longer than PATH_MAX are rejected, never guessed at.
namespace privileged {

enum class Op : std::uint8_t {
    CreateCacheFolder = 1, // first: mount point; second: empty. The user's own cache folder there.
};

struct Request
{
    Op op = Op::CreateCacheFolder;
    std::string first;
    std::string second;
};

enum class Status : std::uint8_t {
    Done = 0,
    Refused = 1,      // the request itself is not allowed
    Failed = 2,       // allowed, but the file system said no (see error)
    NeedsConsent = 3, // only an administrator may allow it (sv3daemon --allow-volume)
};

struct Response
{
    Status status = Status::Failed;
    std::int32_t error = 0;
    std::string message;
};

inline constexpr std::size_t kMaxPath = 4096;
inline constexpr std::size_t kMaxMessage = 1024;
inline constexpr std::size_t kMaxDatagram = 3 + 2 * (2 + kMaxPath);

std::string encode(const Request &request);
std::string encode(const Response &response);
std::optional<Request> decodeRequest(std::string_view datagram);
std::optional<Response> decodeResponse(std::string_view datagram);

} // namespace privileged
