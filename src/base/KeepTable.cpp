#include "KeepTable.h"

#include "SafeFile.h"
#include "UniqueFd.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace keeptable {

Table Table::withDefaults(const std::string &home, const std::string &trashFolder)
{
    Table t;
    t.lists[ExcludedPlaces] = {"/tmp", "/var/tmp", "/run", "/dev", "/proc", "/sys"};
    if (!home.empty()) {
        for (const char *p : {"/.cache", "/.mozilla", "/.config/chromium", "/.config/google-chrome",
                              "/.config/BraveSoftware", "/.thunderbird"})
            t.lists[ExcludedPlaces].push_back(home + p);
    }
    // A trash's own bookkeeping is never kept; its items are, as they are emptied.
    if (!trashFolder.empty()) {
        t.lists[ExcludedPlaces].push_back(trashFolder);
        t.lists[Trashes].push_back(trashFolder);
    }
    t.lists[NamePrefixes] = {".#", ".goutputstream-"};
    // SQLite's rollback journals come and go with every transaction of a program's database.
    t.lists[NameSuffixes] = {".tmp", "~", ".swp", ".part", "-journal"};
    // Package managers, compilers, linkers, build tools, version control, and Salvora 3's own
    // programs, which delete from the caches themselves.
    t.lists[Processes] = {"dpkg",
                          "apt",
                          "apt-get",
                          "aptitude",
                          "rpm",
                          "dnf",
                          "yum",
                          "pacman",
                          "snap",
                          "snapd",
                          "flatpak",
                          "pip",
                          "pip3",
                          "npm",
                          "cc",
                          "c++",
                          "gcc",
                          "g++",
                          "clang",
                          "clang++",
                          "cc1",
                          "cc1plus",
                          "as",
                          "ld",
                          "ld.bfd",
                          "ld.gold",
                          "ld.lld",
                          "collect2",
                          "lto-wrapper",
                          "make",
                          "gmake",
                          "ninja",
                          "cmake",
                          "ctest",
                          "meson",
                          "ccache",
                          "cargo",
                          "rustc",
                          "go",
                          "javac",
                          "git",
                          "hg",
                          "svn",
                          "bzr",
                          "sv3daemon",
                          "sv3daemon-agent",
                          "salvora",
                          "salvora3",
                          "salvora3-menu",
                          "firefox",
                          "firefox-esr",
                          "chrome",
                          "chromium",
                          "thunderbird"};
    return t;
}

std::string Table::encode() const
{
    std::string blob;
    auto add = [&blob](const std::string &s) {
        const auto at = std::uint32_t(blob.size());
        blob.append(s.c_str()); // a name with a NUL in it is cut there
        blob.push_back('\0');
        return at;
    };
    std::vector<Volume> vols;
    for (const Entry &e : volumes)
        vols.push_back({e.dev, add(e.cachePath), add(e.volumePath)});
    Header h{};
    std::memcpy(h.magic, kMagic, sizeof kMagic);
    h.version = kVersion;
    h.flags = on ? kFlagOn : 0;
    h.generation = generation;
    h.volumeCount = std::uint32_t(vols.size());
    for (std::uint32_t l = 0; l < ListCount; ++l) {
        h.lists[l] = std::uint32_t(blob.size());
        for (const std::string &s : lists[l])
            if (!s.empty()) add(s);
        blob.push_back('\0');
    }
    h.blobOffset = std::uint32_t(sizeof h + vols.size() * sizeof(Volume));
    h.size = std::uint32_t(h.blobOffset + blob.size());
    std::string out(reinterpret_cast<const char *>(&h), sizeof h);
    out.append(reinterpret_cast<const char *>(vols.data()), vols.size() * sizeof(Volume));
    out += blob;
    return out;
}

std::string defaultPath()
{
    const char *runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string base = runtime && runtime[0] == '/' ? std::string(runtime)
                                                          : "/run/user/" + std::to_string(getuid());
    return base + "/salvora3/keep-table";
}

namespace {

void splitPath(const std::string &path, std::string *folder, std::string *name)
{
    const auto slash = path.rfind('/');
    *folder = slash == 0 ? "/" : path.substr(0, slash);
    *name = path.substr(slash + 1);
}

// Sets the retired word of the table held open by `fd`, so that processes that map it look again.
void retire(int fd)
{
    if (fd < 0) return;
    const std::uint32_t one = 1;
    pwrite(fd, &one, sizeof one, kRetiredOffset);
}

} // namespace

int publish(const Table &table, const std::string &path)
{
    if (path.empty() || path.front() != '/' || path.back() == '/') return EINVAL;
    std::string folderPath, name;
    splitPath(path, &folderPath, &name);
    UniqueFd folder(safefile::openPathCreating(folderPath, 0700));
    if (folder.fd < 0) return errno;
    // The folder holds what decides what every process of the user keeps: it must be theirs alone.
    if (const int err = safefile::makePrivate(folder.fd)) return err;
    UniqueFd old(safefile::openRegular(folder.fd, name.c_str(), O_WRONLY, 0, true));
    const std::string data = table.encode();
    if (const int err = safefile::replaceFile(folder.fd, name.c_str(), data, 0600)) return err;
    retire(old.fd);
    return 0;
}

int withdraw(const std::string &path)
{
    std::string folderPath, name;
    splitPath(path, &folderPath, &name);
    UniqueFd folder(open(folderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.fd < 0) return errno == ENOENT ? 0 : errno;
    UniqueFd old(safefile::openRegular(folder.fd, name.c_str(), O_WRONLY, 0, true));
    if (old.fd < 0) return errno == ENOENT ? 0 : errno;
    if (unlinkat(folder.fd, name.c_str(), 0) != 0) return errno;
    retire(old.fd);
    return 0;
}

} // namespace keeptable
