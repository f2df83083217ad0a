#pragma once

#include "Protocol.h"

#include <string>
#include <sys/types.h>

// The privileged helper's whole job: answer the two requests of Protocol.h for one user, and
// refuse everything else. It trusts nothing in a request: every path is checked against the
// mount table, the user's home and the user's own settings, and opened without following links.
namespace privileged {

struct Context
{
    uid_t uid = 0; // the requesting user (the real uid of sv3daemon)
    gid_t gid = 0;
    std::string home;         // that user's home folder, without trailing slash
    std::string settingsFile; // that user's settings document, read with the user's rights
    std::string mountInfo = "/proc/self/mountinfo";
};

// Handles one request; *logLine receives what happened, for the log.
Response handle(const Context &context, const Request &request, std::string *logLine);

// Serves requests on a socket until the other end closes it. Each request and its outcome is
// written to stderr and syslog.
void serve(int fd, const Context &context);

// Writes one line to stderr and syslog ("sv3daemon[privileged]: ...").
void log(const std::string &line);

} // namespace privileged
