#pragma once

#include "UniqueFd.h"

#include <QByteArray>
#include <QString>

#include <sys/types.h>

// The agent's side of the socket to the privileged helper that sv3daemon leaves running. Asked
// only for what the user's own rights cannot do: the user's private cache folder in a volume's
// shared cache folder, which only root may write. Without a helper (the agent started on its
// own, or the helper gone) every request fails cleanly.
class PrivilegedClient
{
public:
    PrivilegedClient() = default;
    // Takes over the socket handed down by sv3daemon, and the helper's pid to reap it.
    PrivilegedClient(int fd, pid_t helper);
    ~PrivilegedClient();
    PrivilegedClient(const PrivilegedClient &) = delete;
    PrivilegedClient &operator=(const PrivilegedClient &) = delete;

    bool isAvailable() const { return mFd.fd >= 0; }

    struct Outcome
    {
        bool done = false;
        bool needsConsent = false; // only an administrator may allow that volume
        int error = 0;
        QString message;
    };
    Outcome createCacheFolder(const QByteArray &mountPoint);

private:
    Outcome ask(int op, const QByteArray &first, const QByteArray &second);
    void lose();

    UniqueFd mFd;
    pid_t mHelper = -1;
};
