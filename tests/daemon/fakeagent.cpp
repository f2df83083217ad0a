// A stand-in for sv3daemon-agent in the privileged tests: copied beside a copy of sv3daemon
// under the agent's name, it receives the helper's socket like the real agent and sends whatever
// the test writes on its stdin, so that every hostile request can be tried.
//
//   create HEX        ask to create the cache folder at the root of mount point HEX
//   remove HEX HEX    the removal request of earlier versions (a path inside a cache folder)
//   raw HEX           send these bytes as one datagram
//   quit              exit
// HEX "-" is the empty string. Each command prints one line.

#include "Printable.h"
#include "Protocol.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::string unhex(const std::string &hex)
{
    if (hex == "-") return {};
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(char(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

std::string exchange(int fd, const std::string &datagram)
{
    if (send(fd, datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0)
        return std::string("nosend ") + std::strerror(errno);
    char buf[privileged::kMaxDatagram];
    const ssize_t n = recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return "noanswer";
    const auto r = privileged::decodeResponse({buf, std::size_t(n)});
    if (!r) return "badanswer";
    const char *status = r->status == privileged::Status::Done           ? "done"
                         : r->status == privileged::Status::Refused      ? "refused"
                         : r->status == privileged::Status::NeedsConsent ? "consent"
                                                                         : "failed";
    return std::string(status) + " " + std::to_string(r->error) + " " + printable(r->message);
}

} // namespace

int main(int argc, char **argv)
{
    int fd = -1;
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], "--privileged-fd=", 16) == 0) fd = std::atoi(argv[i] + 16);
    std::cout << "fakeagent ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream in(line);
        std::string cmd, a, b;
        in >> cmd >> a >> b;
        if (cmd == "quit") break;
        privileged::Request r;
        std::string datagram;
        if (cmd == "create") {
            r.op = privileged::Op::CreateCacheFolder;
            r.first = unhex(a);
            datagram = privileged::encode(r);
        } else if (cmd == "remove") {
            // The removal request of earlier versions, which the helper no longer knows.
            r.first = unhex(a);
            r.second = unhex(b);
            datagram = privileged::encode(r);
            datagram[2] = 2;
        } else if (cmd == "raw") {
            datagram = unhex(a);
        } else {
            std::cout << "unknown command" << std::endl;
            continue;
        }
        std::cout << exchange(fd, datagram) << std::endl;
    }
    return 0;
}
