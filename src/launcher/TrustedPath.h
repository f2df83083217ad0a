#pragma once

#include "UniqueFd.h"

#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

namespace launcher {

// True when no one but root can change the file or folder: owned by root, and neither its group
// nor others may write it (a POSIX ACL that lets someone write shows in the group bits).
bool onlyRootCanChange(const struct stat &status);

// An open regular file and its status, reached safely (see openTrusted).
class TrustedFile
{
public:
    TrustedFile() = default;
    TrustedFile(const TrustedFile &) = delete;
    TrustedFile &operator=(const TrustedFile &) = delete;

    int fd() const { return mFd.fd; }
    const struct stat &status() const { return mStatus; }
    // The folder that holds the file, opened (O_PATH) on the same walk.
    int folderFd() const { return mFolderFd.fd; }

private:
    friend bool openTrusted(const std::vector<std::string> &, TrustedFile *, std::string *);
    UniqueFd mFd;
    UniqueFd mFolderFd;
    struct stat mStatus = {};
};

// Opens the regular file named by `names` (an absolute path, one name per level) read-only,
// walking from "/" one name at a time relative to the folder opened before, never through a
// symbolic link. Every folder on the way and the file itself must be changeable by root only,
// and the file must have a single link. Once a folder has passed, nobody but root can swap what
// is inside it, so the descriptor that comes back is the file that was checked: work on it with
// fchown, fchmod and execveat, never on the path again.
bool openTrusted(const std::vector<std::string> &names, TrustedFile *file, std::string *why);

} // namespace launcher
