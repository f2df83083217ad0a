#include "Protocol.h"

namespace privileged {

namespace {

constexpr char kMagic = 'S';
constexpr char kVersion = 1;

void putU16(std::string &out, std::size_t v)
{
    out.push_back(char(v & 0xff));
    out.push_back(char((v >> 8) & 0xff));
}

class Reader
{
public:
    explicit Reader(std::string_view data) : mData(data) {}
    bool byte(std::uint8_t &v)
    {
        if (mPos >= mData.size()) return false;
        v = std::uint8_t(mData[mPos++]);
        return true;
    }
    bool bytes(std::string &out, std::size_t max)
    {
        std::uint8_t lo = 0, hi = 0;
        if (!byte(lo) || !byte(hi)) return false;
        const std::size_t len = std::size_t(lo) | (std::size_t(hi) << 8);
        if (len > max || len > mData.size() - mPos) return false;
        out.assign(mData.substr(mPos, len));
        mPos += len;
        return true;
    }
    bool atEnd() const { return mPos == mData.size(); }

private:
    std::string_view mData;
    std::size_t mPos = 0;
};

bool header(Reader &r)
{
    std::uint8_t magic = 0, version = 0;
    return r.byte(magic) && r.byte(version) && magic == std::uint8_t(kMagic) && version == kVersion;
}

} // namespace

std::string encode(const Request &request)
{
    std::string out{kMagic, kVersion, char(request.op)};
    putU16(out, request.first.size());
    out += request.first;
    putU16(out, request.second.size());
    out += request.second;
    return out;
}

std::string encode(const Response &response)
{
    std::string out{kMagic, kVersion, char(response.status)};
    const auto e = std::uint32_t(response.error);
    for (int i = 0; i < 4; ++i)
        out.push_back(char((e >> (8 * i)) & 0xff));
    const std::string_view message = std::string_view(response.message).substr(0, kMaxMessage);
    putU16(out, message.size());
    out += message;
    return out;
}

std::optional<Request> decodeRequest(std::string_view datagram)
{
    Reader r(datagram);
    std::uint8_t op = 0;
    Request request;
    if (!header(r) || !r.byte(op) || !r.bytes(request.first, kMaxPath) ||
        !r.bytes(request.second, kMaxPath) || !r.atEnd())
        return std::nullopt;
    if (op != std::uint8_t(Op::CreateCacheFolder)) return std::nullopt;
    if (request.first.find('\0') != std::string::npos ||
        request.second.find('\0') != std::string::npos)
        return std::nullopt;
    request.op = Op(op);
    return request;
}

std::optional<Response> decodeResponse(std::string_view datagram)
{
    Reader r(datagram);
    std::uint8_t status = 0;
    std::uint32_t error = 0;
    Response response;
    if (!header(r) || !r.byte(status) || status > std::uint8_t(Status::NeedsConsent))
        return std::nullopt;
    for (int i = 0; i < 4; ++i) {
        std::uint8_t b = 0;
        if (!r.byte(b)) return std::nullopt;
        error |= std::uint32_t(b) << (8 * i);
    }
    if (!r.bytes(response.message, kMaxMessage) || !r.atEnd()) return std::nullopt;
    response.status = Status(status);
    response.error = std::int32_t(error);
    return response;
}

} // namespace privileged
