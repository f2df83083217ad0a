#include "cli/CliIo.h"
#include "cli/Commands.h"
#include "common/Texts.h"

#include <QCoreApplication>

#include <cstring>

namespace {

struct Command
{
    const char *name;
    int (*run)(int, char **);
    const char *synopsis;
    const char *help;
};

const Command kCommands[] = {
    {"volumes", Commands::volumes, "volumes [--json]",
     "The protected volumes, in the order of the window's volume pop-up: index, mount path (or\n"
     "\"unmounted\"), UUID, cache size and title."},
    {"days", Commands::days, "days [-v N] [--json]",
     "The days in the cache of volume N (default 0): name, label, size, item count; then the\n"
     "two summary lines of the window's day list."},
    {"ls", Commands::ls,
     "ls [-v N] [-d DAY|today|yesterday]... [-t TIMEFOLDER] [-s TEXT] [--sort name|time|size] "
     "[-r]\n     [--no-sizes] [--json]",
     "The items of the given days (default: all days), or of one time folder, whose own names\n"
     "contain TEXT (ignoring case), sorted as the window sorts them, or by size. Each row: name,\n"
     "size (empty for folders), caching time, full path, and \"(incomplete)\" for an item kept "
     "only\n"
     "in part (JSON: incomplete, missingFiles, missingBytes); a header row comes first on a\n"
     "terminal. Names and paths that need it are quoted as $'...', which a shell reads back byte\n"
     "for byte. --no-sizes leaves sizes out (null in JSON), which spares a file-system call per "
     "file."},
    {"size", Commands::size, "size PATH [--json]", "The recursive size of a cached folder."},
    {"restore", Commands::restore,
     "restore ITEM... [-v N] [-d DAY]... --to DIR | --to-original [--keep-both | --skip] [--json]",
     "Copies items out of the cache into DIR, or puts them back where they were deleted from\n"
     "(--to-original: they leave the cache, and missing folders are made again). An ITEM is a\n"
     "path, DAY/TIMEFOLDER/NAME, or a NAME as 'salvora ls' prints it, looked up in the days given\n"
     "with -d (default: all); a name several items share lists them instead. Nothing is ever\n"
     "overwritten: an item whose name is taken is skipped (--skip, the default) or, with\n"
     "--keep-both, put back under a numbered name (\"report 2.txt\").\n"
     "Exit status: 0 when everything asked for was restored, 3 when something was skipped (a\n"
     "name taken, a piece of a folder that cannot be copied), 1 when something failed or was\n"
     "not found, 2 for a wrong command line."},
    {"remove", Commands::remove, "remove ITEM... | --day DAY... [-v N] | --all [--yes]",
     "Deletes items, whole days, or every cache, for good. Asks first unless --yes; refuses when\n"
     "it cannot ask. Removing everything also turns protection off."},
    {"rm", Commands::rm, "rm PATH... [--json] | rm --permanently PATH...",
     "Deletes files and folders into the cache of their volume instead of losing them, as the\n"
     "daemon does for the trash: today's day folder, one time folder for the whole call.\n"
     "--permanently deletes them for good, as rm -r does, keeping nothing."},
    {"keep", Commands::keep, "keep on|off|status",
     "Whether files deleted without the trash (rm, \"Delete permanently\", programs) are kept "
     "too:\n"
     "on adds the keeping library to your session (~/.config/environment.d and ~/.profile),\n"
     "off removes it; either takes effect at the next login. SALVORA3_KEEP=0 in a command's\n"
     "environment deletes for good once."},
    {"status", Commands::status, "status [--json] [--seen]",
     "Whether protection is on, the protected volumes, the total cache size, whether the daemon\n"
     "runs, volumes that keep nothing and why, and every item that could not be kept (or only\n"
     "in part) since you last looked: --seen marks those as seen."},
};

const Command *find(const char *name)
{
    for (const Command &c : kCommands)
        if (std::strcmp(c.name, name) == 0) return &c;
    return nullptr;
}

void printUsage(FILE *f)
{
    std::fprintf(f, "usage: salvora COMMAND [OPTIONS]\n\nCommands:\n");
    for (const Command &c : kCommands)
        std::fprintf(f, "  salvora %s\n", c.synopsis);
    std::fprintf(
        f, "\nPaths in --json output are JSON strings; bytes that are not UTF-8 appear as \\udcXX\n"
           "(Python's surrogateescape: os.fsencode gives the bytes back).\n"
           "'salvora COMMAND --help' explains a command.\n");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("salvora"));
    Texts::install(app);
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") ||
        !std::strcmp(argv[1], "help")) {
        printUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    const Command *c = find(argv[1]);
    if (!c)
        return CliIo::fail(QStringLiteral("unknown command '%1' (see 'salvora --help')")
                               .arg(QString::fromLocal8Bit(argv[1])),
                           2);
    for (int i = 2; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--")) break;
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::printf("usage: salvora %s\n\n%s\n", c->synopsis, c->help);
            return 0;
        }
    }
    return c->run(argc, argv);
}
