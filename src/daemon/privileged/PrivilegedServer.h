#pragma once

#include "Protocol.h"

#include <string>
#include <sys/types.h>

// The privileged helper's whole job: make the requesting user's own private cache folder on a
// volume whose shared cache folder only root may write to, and refuse everything else. It trusts
// nothing in a request and nothing in the user's files: the mount point is checked against the
// mount table, every step is taken on descriptors opened without following links, and what a step
// made is checked to be what it made before its owner or mode is changed. It never reads the
// user's settings, never removes anything and never acts in another user's folder.
namespace privileged {

struct Context
{
    uid_t uid = 0; // the requesting user (the real uid sv3daemon was started with)
    gid_t gid = 0;
    std::string mountInfo = "/proc/self/mountinfo";
};

// Handles one request; *logLine receives what happened, for the log.
Response handle(const Context &context, const Request &request, std::string *logLine);

// Serves requests on a socket until the other end closes it. Each request and its outcome is
// written to stderr and syslog.
void serve(int fd, const Context &context);

// The administrator's consent, given through pkexec (or by root at a shell): the shared cache
// folder of a volume whose root only root may write to, so that each of its users may have a
// private folder there. Done for root only; *message says what happened.
bool allowVolume(const Context &context, const std::string &mountPoint, std::string *message);

// Writes one line to stderr and syslog ("sv3daemon[privileged]: ...").
void log(const std::string &line);

} // namespace privileged
