#include "PrivilegedClient.h"

#include "Protocol.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
// Making two folders takes no time; a helper that says nothing for this long is considered gone.
constexpr int kAnswerTimeoutMs = 10000;
} // namespace

PrivilegedClient::PrivilegedClient(int fd, pid_t helper) : mFd(fd), mHelper(helper)
{
    int type = 0;
    socklen_t len = sizeof type;
    if (mFd.fd >= 0 &&
        (getsockopt(mFd.fd, SOL_SOCKET, SO_TYPE, &type, &len) != 0 || type != SOCK_SEQPACKET)) {
        mFd.release(); // not the helper's socket: not ours to close either
        return;
    }
    // Programs the agent starts must not inherit the way to root.
    if (mFd.fd >= 0) fcntl(mFd.fd, F_SETFD, FD_CLOEXEC);
}

PrivilegedClient::~PrivilegedClient()
{
    lose();
}

void PrivilegedClient::lose()
{
    mFd.reset();
    // The helper exits when the socket closes; it is our child since sv3daemon became us.
    if (mHelper > 0) waitpid(mHelper, nullptr, WNOHANG);
    mHelper = -1;
}

PrivilegedClient::Outcome PrivilegedClient::createCacheFolder(const QByteArray &mountPoint)
{
    return ask(int(privileged::Op::CreateCacheFolder), mountPoint, {});
}

PrivilegedClient::Outcome PrivilegedClient::ask(int op, const QByteArray &first,
                                                const QByteArray &second)
{
    Outcome o;
    if (mFd.fd < 0) {
        o.error = ENOTCONN;
        o.message = QStringLiteral("no privileged helper");
        return o;
    }
    privileged::Request request;
    request.op = privileged::Op(op);
    request.first = first.toStdString();
    request.second = second.toStdString();
    const std::string out = privileged::encode(request);
    if (out.size() > privileged::kMaxDatagram ||
        send(mFd.fd, out.data(), out.size(), MSG_NOSIGNAL) < 0) {
        o.error = errno ? errno : ENAMETOOLONG;
        o.message = QStringLiteral("cannot reach the privileged helper");
        if (o.error != ENAMETOOLONG) lose();
        return o;
    }
    pollfd p{mFd.fd, POLLIN, 0};
    int ready = 0;
    do
        ready = poll(&p, 1, kAnswerTimeoutMs);
    while (ready < 0 && errno == EINTR);
    char buf[privileged::kMaxDatagram];
    const ssize_t n = ready > 0 ? recv(mFd.fd, buf, sizeof buf, 0) : -1;
    const auto response = n > 0 ? privileged::decodeResponse({buf, std::size_t(n)}) : std::nullopt;
    if (!response) {
        o.error = EPIPE;
        o.message = QStringLiteral("the privileged helper did not answer");
        lose();
        return o;
    }
    o.done = response->status == privileged::Status::Done;
    o.needsConsent = response->status == privileged::Status::NeedsConsent;
    o.error = response->error;
    o.message = QString::fromStdString(response->message);
    return o;
}
