// gen_cache: writes a deterministic synthetic Salvora 3 cache folder for benchmarks.
//
//   gen_cache --out DIR --entries N [--seed S] [--flat | --small-folders] [--odd-names]
//             [--start-date yyyy-MM-dd] [--force]
//
// Layout: DIR/<yyyy-MM-dd>/<yyyy-MM-dd HH_mm_ss>/<deleted items>. N counts every entry
// below the time folders, including everything inside folder items. By default a year of
// time folders shares N by weight (a few large ones); --flat puts N plain files in one time
// folder; --small-folders makes 40-80 time folders a day of 12-24 items each, for as many days
// as N needs (someone who deletes a little at a time). Files only get an
// apparent size via ftruncate, so they are sparse: a million of them cost little disk and
// are quick to make, while du and statx still see realistic sizes.
//
// The same arguments give the same tree: all randomness comes from one seeded xoshiro256**
// stream, and names stay unique per folder through O_EXCL/mkdirat retries, which needs no
// in-memory name sets even with a million files in one folder.

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint64_t kMaxEntries = 1'000'000'000;
constexpr int kDaysPerCache = 365;
constexpr uint64_t KiB = 1024;
constexpr uint64_t MiB = 1024 * KiB;

constexpr const char *kUsage =
    "usage: gen_cache --out DIR --entries N [--seed S] [--flat | --small-folders] [--odd-names]\n"
    "                 [--start-date yyyy-MM-dd] [--force]\n";

// Names are arbitrary bytes; keep error messages readable on any terminal.
std::string printable(std::string_view s)
{
    std::string out;
    for (const unsigned char c : s) {
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += static_cast<char>(c);
        } else {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", static_cast<unsigned>(c));
            out += buf;
        }
    }
    return out;
}

[[noreturn]] void usageError(const std::string &msg)
{
    std::fprintf(stderr, "gen_cache: %s\n%s", msg.c_str(), kUsage);
    std::exit(2);
}

[[noreturn]] void fail(const std::string &what, int err)
{
    std::fprintf(stderr, "gen_cache: %s: %s\n", what.c_str(), std::strerror(err));
    std::exit(1);
}

// ---------------------------------------------------------------------------------------------
// Randomness

uint64_t splitmix64(uint64_t &x)
{
    uint64_t z = (x += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// xoshiro256**. Integer-only helpers on top so that no libm rounding can change the tree
// between machines.
class Rng
{
public:
    explicit Rng(uint64_t seed)
    {
        for (auto &word : s_)
            word = splitmix64(seed);
    }

    uint64_t next()
    {
        const uint64_t result = std::rotl(s_[1] * 5, 7) * 9;
        const uint64_t t = s_[1] << 17;
        s_[2] ^= s_[0];
        s_[3] ^= s_[1];
        s_[1] ^= s_[2];
        s_[0] ^= s_[3];
        s_[2] ^= t;
        s_[3] = std::rotl(s_[3], 45);
        return result;
    }

    // Uniform in [0, n), n > 0.
    uint64_t below(uint64_t n)
    {
        const uint64_t threshold = (0 - n) % n;
        for (;;) {
            const uint64_t r = next();
            if (r >= threshold) return r % n;
        }
    }

    unsigned belowU(unsigned n) { return static_cast<unsigned>(below(n)); }

    // Uniform in [lo, hi].
    uint64_t range(uint64_t lo, uint64_t hi) { return lo + below(hi - lo + 1); }

    bool chance(uint64_t num, uint64_t den) { return below(den) < num; }

    template <size_t N> const char *pick(const char *const (&a)[N]) { return a[below(N)]; }

    // Roughly log-uniform in [lo, hi], lo >= 1: pick a power-of-two octave, then a value in it.
    uint64_t logUniform(uint64_t lo, uint64_t hi)
    {
        const int blo = static_cast<int>(std::bit_width(lo)) - 1;
        const int bhi = static_cast<int>(std::bit_width(hi)) - 1;
        const int b = blo + static_cast<int>(below(static_cast<uint64_t>(bhi - blo + 1)));
        const uint64_t a = std::max(lo, uint64_t{1} << b);
        const uint64_t z = std::min(hi, (uint64_t{2} << b) - 1);
        return range(a, z);
    }

private:
    uint64_t s_[4];
};

// ---------------------------------------------------------------------------------------------
// Dates (proleptic Gregorian, days since 1970-01-01)

constexpr int64_t daysFromCivil(int y, unsigned m, unsigned d)
{
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

struct Civil
{
    int y;
    unsigned m;
    unsigned d;
};

Civil civilFromDays(int64_t z)
{
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const auto doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned d = doy - (153 * mp + 2) / 5 + 1;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    const auto y = static_cast<int>(static_cast<int64_t>(yoe) + era * 400 + (m <= 2));
    return {y, m, d};
}

bool isLeap(int y)
{
    return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

unsigned daysInMonth(int y, unsigned m)
{
    static constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return m == 2 && isLeap(y) ? 29 : kDays[m - 1];
}

// ---------------------------------------------------------------------------------------------
// Options

struct Options
{
    std::string out;
    uint64_t entries = 0;
    uint64_t seed = 0;
    bool flat = false;
    bool smallFolders = false;
    bool oddNames = false;
    bool force = false;
    int64_t startDay = daysFromCivil(2025, 1, 1); // days since 1970-01-01
};

bool parseU64(std::string_view s, uint64_t &value)
{
    int base = 10;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        s.remove_prefix(2);
        base = 16;
    }
    if (s.empty()) return false;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, base);
    return ec == std::errc() && end == s.data() + s.size();
}

bool parseDate(std::string_view s, int64_t &day)
{
    if (s.size() != 10 || s[4] != '-' || s[7] != '-') return false;
    for (const size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (s[i] < '0' || s[i] > '9') return false;
    const auto num = [&](size_t pos, size_t len) {
        unsigned v = 0;
        for (size_t i = pos; i < pos + len; ++i)
            v = v * 10 + static_cast<unsigned>(s[i] - '0');
        return v;
    };
    const auto y = static_cast<int>(num(0, 4));
    const unsigned m = num(5, 2);
    const unsigned d = num(8, 2);
    // The last day folder must still have a four-digit year.
    if (y < 1000 || y > 9998 || m < 1 || m > 12 || d < 1 || d > daysInMonth(y, m)) return false;
    day = daysFromCivil(y, m, d);
    return true;
}

Options parseArgs(int argc, char **argv)
{
    Options opt;
    bool haveOut = false;
    bool haveEntries = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view arg = argv[i];
        std::string_view inlineValue;
        bool hasInline = false;
        if (const auto eq = arg.find('='); arg.starts_with("--") && eq != std::string_view::npos) {
            inlineValue = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            hasInline = true;
        }
        const auto value = [&]() -> std::string_view {
            if (hasInline) return inlineValue;
            if (i + 1 >= argc) usageError(std::string(arg) + " needs a value");
            return argv[++i];
        };
        const auto noValue = [&] {
            if (hasInline) usageError(std::string(arg) + " takes no value");
        };

        if (arg == "--out") {
            opt.out = value();
            haveOut = true;
        } else if (arg == "--entries") {
            const std::string_view v = value();
            if (!parseU64(v, opt.entries) || opt.entries > kMaxEntries)
                usageError("--entries must be a whole number from 0 to " +
                           std::to_string(kMaxEntries) + ", got '" + printable(v) + "'");
            haveEntries = true;
        } else if (arg == "--seed") {
            const std::string_view v = value();
            if (!parseU64(v, opt.seed))
                usageError("--seed must be an unsigned 64-bit number, got '" + printable(v) + "'");
        } else if (arg == "--start-date") {
            const std::string_view v = value();
            if (!parseDate(v, opt.startDay))
                usageError("--start-date must be a valid date yyyy-MM-dd (years 1000-9998), "
                           "got '" +
                           printable(v) + "'");
        } else if (arg == "--flat") {
            noValue();
            opt.flat = true;
        } else if (arg == "--small-folders") {
            noValue();
            opt.smallFolders = true;
        } else if (arg == "--odd-names") {
            noValue();
            opt.oddNames = true;
        } else if (arg == "--force") {
            noValue();
            opt.force = true;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            std::exit(0);
        } else {
            usageError("unknown argument '" + printable(argv[i]) + "'");
        }
    }
    if (!haveOut || opt.out.empty()) usageError("--out DIR is required");
    if (!haveEntries) usageError("--entries N is required");
    if (opt.flat && opt.smallFolders) usageError("--flat and --small-folders exclude each other");
    return opt;
}

// Creates DIR (and missing parents) and returns a descriptor for it.
int openOutputDir(const Options &opt)
{
    const std::string &path = opt.out;
    for (size_t pos = path.find('/', 1); pos != std::string::npos; pos = path.find('/', pos + 1)) {
        const std::string prefix = path.substr(0, pos);
        if (::mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST)
            fail("cannot create '" + printable(prefix) + "'", errno);
    }
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST)
        fail("cannot create '" + printable(path) + "'", errno);
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("cannot open '" + printable(path) + "' as a folder", errno);

    const int scanFd = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *dir = scanFd >= 0 ? ::fdopendir(scanFd) : nullptr;
    if (!dir) fail("cannot list '" + printable(path) + "'", errno);
    bool empty = true;
    while (const dirent *e = ::readdir(dir)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) {
            empty = false;
            break;
        }
    }
    ::closedir(dir);
    if (!empty && !opt.force) {
        std::fprintf(stderr, "gen_cache: '%s' is not empty; use --force to write into it anyway\n",
                     printable(path).c_str());
        std::exit(1);
    }
    return fd;
}

// ---------------------------------------------------------------------------------------------
// Names

enum class Weight { Light, Doc, Heavy };
enum class Flavor { Mixed, Code, Photos, Docs };

struct Name
{
    std::string stem;
    std::string ext;
};

// None of these may contain "report": report names must come only from their own generator
// so that their share stays known. makeName() re-checks the combined result anyway.
const char *const kNouns[] = {
    "invoice",    "budget",   "meeting",     "notes",        "summary",    "draft",
    "letter",     "contract", "photo",       "holiday",      "family",     "project",
    "plan",       "schedule", "thesis",      "chapter",      "recipe",     "ticket",
    "receipt",    "manual",   "guide",       "backup",       "archive",    "design",
    "logo",       "banner",   "poster",      "scan",         "statement",  "minutes",
    "agenda",     "proposal", "memo",        "list",         "todo",       "diary",
    "journal",    "travel",   "wedding",     "birthday",     "garden",     "kitchen",
    "insurance",  "tax",      "salary",      "lease",        "resume",     "application",
    "slides",     "sketch",   "drawing",     "map",          "ideas",      "data",
    "export",     "results",  "analysis",    "chart",        "figure",     "table",
    "sample",     "test",     "demo",        "release",      "setup",      "config",
    "settings",   "profile",  "wallpaper",   "song",         "track",      "album",
    "video",      "lecture",  "homework",    "exercise",     "exam",       "grades",
    "newsletter", "flyer",    "menu",        "invitation",   "payslip",    "policy",
    "warranty",   "quote",    "order",       "delivery",     "inventory",  "catalog",
    "prices",     "overview", "checklist",   "timeline",     "roadmap",    "feedback",
    "survey",     "forecast", "estimate",    "bill",         "license",    "passport",
    "itinerary",  "booking",  "certificate", "presentation", "letterhead", "minutes",
};
const char *const kQualifiers[] = {
    "final",  "old",      "new",    "copy", "revised", "signed",  "scanned",
    "edited", "temp",     "latest", "full", "short",   "public",  "private",
    "shared", "personal", "work",   "home", "misc",    "updated", "approved",
};
const char *const kProper[] = {
    "Alpha",  "Beta",   "Gamma",   "Orion",  "Lisbon", "Berlin", "Oslo",  "Kyoto",
    "Maple",  "Cedar",  "Summit",  "Harbor", "Nova",   "Delta",  "Atlas", "Phoenix",
    "Aurora", "Falcon", "Granite", "Willow", "Lumen",  "Vega",
};
const char *const kMonths[] = {
    "January",   "February", "March",    "April",    "May", "June", "July", "August",
    "September", "October",  "November", "December", "Jan", "Feb",  "Mar",  "Apr",
    "Jun",       "Jul",      "Aug",      "Sep",      "Oct", "Nov",  "Dec",
};
const char *const kPlaces[] = {
    "Paris", "Rome",   "Alps", "Beach", "Lake Como", "Iceland",   "Grandma",
    "Kids",  "Garden", "Snow", "Party", "Lisbon",    "Mountains", "Zoo",
};
// Weighted by repetition; "" is a name without extension.
const char *const kDocExts[] = {
    ".pdf", ".pdf", ".pdf", ".pdf", ".pdf", ".docx", ".docx", ".docx", ".docx",
    ".txt", ".txt", ".txt", ".txt", ".odt", ".xlsx", ".xlsx", ".pptx", ".csv",
    ".md",  ".rtf", ".doc", "",     "",     ".PDF",  ".ods",
};
const char *const kPhotoExts[] = {".jpg", ".jpg", ".jpg", ".JPG", ".png", ".jpeg", ".heic", ".PNG"};
const char *const kCodeExts[] = {
    ".cpp", ".cpp",  ".h",   ".py",   ".js",  ".json", ".html", ".css", ".sh",  ".rs",
    ".go",  ".java", ".xml", ".yaml", ".ini", ".log",  ".txt",  ".c",   ".hpp", ".toml",
};
const char *const kArchiveExts[] = {".tar.gz", ".tar.gz", ".tar.gz", ".zip", ".zip",
                                    ".tar.xz", ".7z",     ".deb",    ".tgz"};
const char *const kMediaExts[] = {".mp3", ".mp4", ".wav", ".mkv", ".flac", ".ogg", ".mov"};
const char *const kCodeWords[] = {
    "main",   "util",    "parser",  "config", "server", "client", "model",  "view",
    "index",  "helpers", "network", "cache",  "types",  "engine", "render", "io",
    "logger", "options", "session", "worker", "queue",  "style",  "app",    "test_main",
};
const char *const kNoExtNames[] = {
    "README", "LICENSE", "Makefile",  "TODO",    "notes",     "Dockerfile", "a.out~",
    "core",   "INSTALL", "CHANGELOG", "AUTHORS", "passwords", "untitled",   "log",
};
// Valid UTF-8 beyond ASCII, including a decomposed (NFD) twin of an NFC name and a
// four-byte emoji, so that byte-wise and normalising comparisons can be told apart.
const char *const kUnicodeStems[] = {
    "Café menu",
    "Übersicht",
    "Straßenkarte",
    "naïve notes",
    "r\xC3\xA9sum\xC3\xA9",
    "re\xCC\x81sume\xCC\x81",
    "日本語のメモ",
    "写真",
    "Фото",
    "Ελληνικά",
    "música favorita",
    "Zürich trip",
    "São Paulo",
    "Kraków plan",
    "Ångström data",
    "party 🎉",
    "한국어 문서",
    "Ørsted notes",
    "Ēķis",
    "façade",
};
const char *const kUnicodeExts[] = {".pdf", ".txt", ".jpg", ".docx", ".png", ".odt", ""};

const char *const kReportTemplates[] = {
    "Annual Report %d", "report_q%d",          "REPORT",         "report",
    "Report",           "Quarterly Report %d", "%s report",      "%s_report",
    "report-%d",        "weekly-report-%02d",  "Reports %d",     "BugReport_%d",
    "RePoRt %s",        "status report (%d)",  "expense-report", "Report_Final_v%d",
    "reporting-%s",     "Bericht Report %d",   "myreport%d",     "REPORT-%s",
    "report_%s",
};
const char *const kNearMisses[] = {
    "rep_ort.txt",        "repor.txt", "re port.pdf", "reprot.docx",
    "Rep-ort 2023.pdf",   "eport.txt", "rapport.pdf", "r e p o r t.txt",
    "repo rt.md",         "reort.txt", "REP0RT.docx", "rep.ort",
    "re\xC2\xADport.txt", // soft hyphen inside
    "r\xC3\xA9port.pdf",  // accented e
    "ｒｅｐｏｒｔ.txt",   // full-width letters
    "repport.odt",
};

Weight weightOf(std::string_view ext)
{
    static constexpr std::string_view kHeavy[] = {
        ".jpg", ".JPG", ".jpeg", ".png", ".PNG", ".heic", ".tar.gz", ".zip", ".tar.xz", ".7z",
        ".deb", ".tgz", ".mp3",  ".mp4", ".wav", ".mkv",  ".flac",   ".ogg", ".mov"};
    static constexpr std::string_view kDoc[] = {".pdf",  ".PDF", ".docx", ".doc", ".odt",
                                                ".xlsx", ".ods", ".pptx", ".rtf"};
    if (std::find(std::begin(kHeavy), std::end(kHeavy), ext) != std::end(kHeavy))
        return Weight::Heavy;
    if (std::find(std::begin(kDoc), std::end(kDoc), ext) != std::end(kDoc)) return Weight::Doc;
    return Weight::Light;
}

bool containsReport(std::string_view s)
{
    static constexpr std::string_view kWord = "report";
    if (s.size() < kWord.size()) return false;
    for (size_t i = 0; i + kWord.size() <= s.size(); ++i) {
        size_t k = 0;
        while (k < kWord.size() && (s[i + k] | 0x20) == kWord[k])
            ++k;
        if (k == kWord.size()) return true;
    }
    return false;
}

std::string capitalized(std::string s)
{
    if (!s.empty() && s[0] >= 'a' && s[0] <= 'z') s[0] = static_cast<char>(s[0] - 'a' + 'A');
    return s;
}

template <typename... Args> std::string format(const char *fmt, Args... args)
{
    char buf[256];
    const int n = std::snprintf(buf, sizeof buf, fmt, args...);
    return std::string(buf, n < 0 ? 0 : std::min<size_t>(static_cast<size_t>(n), sizeof buf - 1));
}

// Expands a template holding at most one %d/%02d or one %s.
std::string fillTemplate(Rng &rng, const char *tpl)
{
    const std::string_view t = tpl;
    if (t.find("%s") != std::string_view::npos) return format(tpl, rng.pick(kNouns));
    if (t.find("%02d") != std::string_view::npos)
        return format(tpl, static_cast<int>(rng.range(1, 52)));
    if (t.find("%d") != std::string_view::npos) {
        const int v = rng.chance(1, 2) ? static_cast<int>(rng.range(2015, 2025))
                                       : static_cast<int>(rng.range(1, 9));
        return format(tpl, v);
    }
    return tpl;
}

class NameMaker
{
public:
    explicit NameMaker(Rng &rng) : rng_(rng) {}

    // About 1 in 200 names contains "report" in some spelling, 1 in 1000 is a near miss.
    Name file(Flavor flavor)
    {
        const uint64_t r = rng_.below(1000);
        if (r < 5) return {fillTemplate(rng_, rng_.pick(kReportTemplates)), rng_.pick(kDocExts)};
        if (r == 5) return {rng_.pick(kNearMisses), ""};
        for (;;) {
            Name n = regularFile(flavor);
            if (!containsReport(n.stem) && !containsReport(n.stem + n.ext)) return n;
        }
    }

    std::string folder(Flavor flavor, bool topLevel)
    {
        if (rng_.chance(1, 200)) {
            static const char *const kReportFolders[] = {
                "Reports",        "Reports %d",  "report-drafts", "Quarterly Reports",
                "REPORT archive", "old reports", "Report %d"};
            return fillTemplate(rng_, rng_.pick(kReportFolders));
        }
        for (;;) {
            std::string s = topLevel ? topFolder(flavor) : subFolder(flavor);
            if (!containsReport(s)) return s;
        }
    }

private:
    Name regularFile(Flavor flavor)
    {
        switch (flavor) {
        case Flavor::Code:
            if (rng_.chance(85, 100)) return code();
            return {rng_.pick(kNoExtNames), ""};
        case Flavor::Photos:
            return rng_.chance(9, 10) ? photo() : document();
        case Flavor::Docs:
            return rng_.chance(8, 10) ? document() : datePrefixed();
        case Flavor::Mixed:
            break;
        }
        const unsigned r = rng_.belowU(100);
        if (r < 30) return document();
        if (r < 45) return photo();
        if (r < 53) return code();
        if (r < 60) return archive();
        if (r < 63) return media();
        if (r < 69) return noExtension();
        if (r < 74) return unicode();
        if (r < 76) return dotfile();
        if (r < 84) return datePrefixed();
        return simple();
    }

    std::string word()
    {
        const unsigned r = rng_.belowU(10);
        if (r < 6) return rng_.pick(kNouns);
        if (r < 8) return rng_.pick(kQualifiers);
        if (r < 9) return rng_.pick(kProper);
        return rng_.pick(kMonths);
    }

    int year() { return static_cast<int>(rng_.range(2015, 2025)); }
    int month() { return static_cast<int>(rng_.range(1, 12)); }
    int mday() { return static_cast<int>(rng_.range(1, 28)); }

    std::string words(unsigned count)
    {
        const unsigned style = rng_.belowU(5);
        std::string s;
        for (unsigned i = 0; i < count; ++i) {
            std::string w = word();
            switch (style) {
            case 0: // Title Case
                s += (i ? " " : "") + capitalized(w);
                break;
            case 1:
                s += (i ? "_" : "") + w;
                break;
            case 2:
                s += (i ? "-" : "") + w;
                break;
            case 3: // CamelCase
                s += capitalized(w);
                break;
            default: // Sentence case
                s += i ? " " + w : capitalized(w);
                break;
            }
        }
        return s;
    }

    Name document()
    {
        std::string stem = words(1 + rng_.belowU(3));
        switch (rng_.belowU(12)) {
        case 0:
            stem += format(" (%d)", static_cast<int>(rng_.range(1, 9)));
            break;
        case 1: {
            static const char *const kSuffixes[] = {"_final", "_v2",     "_v3",      " - Copy",
                                                    "_old",   " signed", "_FINAL_2", " (copy)"};
            stem += rng_.pick(kSuffixes);
            break;
        }
        case 2:
            stem += format(" %d", year());
            break;
        case 3:
            stem += format("_%04d%02d%02d", year(), month(), mday());
            break;
        case 4:
            stem += format("_%d", static_cast<int>(rng_.range(1, 999)));
            break;
        default:
            break;
        }
        return {std::move(stem), rng_.pick(kDocExts)};
    }

    Name photo()
    {
        const int y = year(), mo = month(), d = mday();
        const int h = static_cast<int>(rng_.range(0, 23));
        const int mi = static_cast<int>(rng_.range(0, 59));
        const int s = static_cast<int>(rng_.range(0, 59));
        switch (rng_.belowU(7)) {
        case 0:
            return {format("IMG_%04d", static_cast<int>(rng_.below(10000))),
                    rng_.chance(1, 3) ? ".JPG" : ".jpg"};
        case 1:
            return {format("DSC_%04d", static_cast<int>(rng_.below(10000))), ".JPG"};
        case 2:
            return {format("PXL_%04d%02d%02d_%02d%02d%02d%03d", y, mo, d, h, mi, s,
                           static_cast<int>(rng_.below(1000))),
                    ".jpg"};
        case 3:
            return {format("Screenshot from %04d-%02d-%02d %02d-%02d-%02d", y, mo, d, h, mi, s),
                    ".png"};
        case 4:
            return {format("Screenshot_%04d%02d%02d-%02d%02d%02d", y, mo, d, h, mi, s), ".png"};
        case 5:
            return {format("WhatsApp Image %04d-%02d-%02d at %02d.%02d.%02d", y, mo, d, h, mi, s),
                    ".jpeg"};
        default:
            return {format("%s %d %d", rng_.pick(kPlaces), y, static_cast<int>(rng_.range(1, 400))),
                    rng_.pick(kPhotoExts)};
        }
    }

    Name code()
    {
        std::string stem = rng_.pick(kCodeWords);
        if (rng_.chance(1, 3)) stem += std::string("_") + rng_.pick(kNouns);
        if (rng_.chance(1, 4)) stem += format("%d", static_cast<int>(rng_.range(2, 99)));
        return {std::move(stem), rng_.pick(kCodeExts)};
    }

    Name archive()
    {
        const char *ext = rng_.pick(kArchiveExts);
        switch (rng_.belowU(4)) {
        case 0:
            return {format("%s-%d.%d.%d", rng_.pick(kCodeWords), static_cast<int>(rng_.range(0, 9)),
                           static_cast<int>(rng_.range(0, 30)),
                           static_cast<int>(rng_.range(0, 20))),
                    ext};
        case 1:
            return {format("%s_setup_x64", rng_.pick(kProper)), ".zip"};
        case 2:
            return {format("backup-%04d%02d%02d", year(), month(), mday()), ext};
        default:
            return {format("%s-%s", rng_.pick(kNouns), rng_.chance(1, 2) ? "master" : "main"), ext};
        }
    }

    Name media()
    {
        return {format("%02d %s", static_cast<int>(rng_.range(1, 20)), words(2).c_str()),
                rng_.pick(kMediaExts)};
    }

    Name noExtension()
    {
        if (rng_.chance(1, 2)) return {rng_.pick(kNoExtNames), ""};
        return {words(1 + rng_.belowU(2)) +
                    (rng_.chance(1, 2) ? format("_%d", static_cast<int>(rng_.range(1, 99))) : ""),
                ""};
    }

    Name unicode()
    {
        std::string stem = rng_.pick(kUnicodeStems);
        if (rng_.chance(1, 2)) stem += format(" %d", static_cast<int>(rng_.range(1, 300)));
        return {std::move(stem), rng_.pick(kUnicodeExts)};
    }

    Name dotfile()
    {
        switch (rng_.belowU(4)) {
        case 0:
            return {format(".%src", rng_.pick(kCodeWords)), ""};
        case 1:
            return {format(".%s", rng_.pick(kNouns)), ".swp"};
        case 2:
            return {format(".~lock.%s", rng_.pick(kNouns)), ".odt#"};
        default:
            return {format(".hidden %s", rng_.pick(kNouns)), ".txt"};
        }
    }

    Name datePrefixed()
    {
        const int y = year(), mo = month(), d = mday();
        std::string stem = rng_.chance(1, 2) ? format("%04d-%02d-%02d ", y, mo, d)
                                             : format("%04d%02d%02d_", y, mo, d);
        stem += words(1 + rng_.belowU(2));
        return {std::move(stem), rng_.pick(kDocExts)};
    }

    Name simple()
    {
        std::string stem = rng_.chance(1, 2) ? std::string(rng_.pick(kNouns)) : words(2);
        static const char *const kExts[] = {".pdf", ".txt", ".jpg", ".docx", ".png", ".tar.gz", ""};
        return {std::move(stem), rng_.pick(kExts)};
    }

    std::string topFolder(Flavor flavor)
    {
        switch (flavor) {
        case Flavor::Code:
            return rng_.chance(1, 2)
                       ? format("%s-%d.%d", rng_.pick(kCodeWords),
                                static_cast<int>(rng_.range(0, 5)),
                                static_cast<int>(rng_.range(0, 20)))
                       : capitalized(rng_.pick(kProper)) + " " + rng_.pick(kCodeWords);
        case Flavor::Photos:
            return rng_.chance(1, 2) ? format("Photos %d", year())
                                     : format("%s %d", rng_.pick(kPlaces), year());
        case Flavor::Docs:
            return rng_.chance(1, 3) ? format("backup-%04d-%02d", year(), month())
                                     : words(1 + rng_.belowU(2));
        case Flavor::Mixed:
            break;
        }
        static const char *const kNames[] = {"New Folder", "Untitled Folder", "Downloads old",
                                             "stuff",      "To sort",         "Desktop backup"};
        std::string s = rng_.chance(1, 2) ? std::string(rng_.pick(kNames)) : words(2);
        if (rng_.chance(1, 3)) s += format(" %d", static_cast<int>(rng_.range(2, 30)));
        return s;
    }

    std::string subFolder(Flavor flavor)
    {
        switch (flavor) {
        case Flavor::Code: {
            static const char *const kDirs[] = {"src",         "include",  "lib",      "tests",
                                                "docs",        "build",    "scripts",  "assets",
                                                "third_party", "tools",    "examples", "res",
                                                "config",      "internal", "data",     ".git"};
            return rng_.pick(kDirs);
        }
        case Flavor::Photos: {
            static const char *const kDirs[] = {"edited", "raw",   "thumbnails", "best",
                                                "export", "phone", "camera",     "selection"};
            return rng_.chance(1, 2) ? format("%04d-%02d-%02d", year(), month(), mday())
                                     : std::string(rng_.pick(kDirs));
        }
        case Flavor::Docs:
        case Flavor::Mixed:
            break;
        }
        static const char *const kDirs[] = {"old",  "drafts",  "archive", "scans",
                                            "misc", "To sort", "final",   "attachments"};
        switch (rng_.belowU(3)) {
        case 0:
            return rng_.pick(kDirs);
        case 1:
            return format("%s %d", rng_.pick(kMonths), year());
        default:
            return words(1 + rng_.belowU(2));
        }
    }

    Rng &rng_;
};

// A handful of names that break naive assumptions: invalid UTF-8, control characters,
// the 255-byte limit in ASCII and in multi-byte UTF-8, characters Windows refuses.
struct OddItem
{
    std::string name;
    std::vector<std::string> children; // non-empty: a folder (a plain file in --flat mode)
    std::string flatName;
};

std::vector<OddItem> oddItems()
{
    std::string longAscii = "Long name ";
    while (longAscii.size() < 255 - 4)
        longAscii += static_cast<char>('a' + longAscii.size() % 26);
    longAscii += ".pdf";
    std::string longUtf8;
    for (int i = 0; i < 126; ++i)
        longUtf8 += "\xC3\xA9"; // é
    longUtf8 += ".md";
    return {
        {"\xFF\xFE bytes.txt", {}, {}},
        {"first line\nsecond line.txt", {}, {}},
        {std::move(longAscii), {}, {}},
        {std::move(longUtf8), {}, {}},
        {"Report \xFF draft.docx", {}, {}},
        {"Latin-1 \xE9t\xE9",
         {"\x80\x81.bin", "tab\there.txt", "back\\slash.txt", "ok.txt"},
         "Latin-1 \xE9t\xE9.txt"},
        {"  spaced name .txt  ", {}, {}},
        {"-dash-first.txt", {}, {}},
        {"\xC3\x28 broken sequence", {}, {}},
        {"\xED\xA0\x80 surrogate.txt", {}, {}},
        {"what?*:<>|\"\r.txt", {}, {}},
    };
}

// ---------------------------------------------------------------------------------------------
// Generator

class Generator
{
public:
    Generator(const Options &opt, int rootFd)
        : opt_(opt), rng_(opt.seed), names_(rng_), rootFd_(rootFd), limit_(opt.entries)
    {
        if (opt.oddNames) odd_ = oddItems();
    }

    void run()
    {
        if (limit_ == 0) return;
        if (opt_.flat)
            runFlat();
        else if (opt_.smallFolders)
            runSmallFolders();
        else
            runYear();
    }

    void printSummary() const
    {
        std::printf("entries=%" PRIu64 " files=%" PRIu64 " folders=%" PRIu64 " bytes=%" PRIu64
                    " days=%" PRIu64 " timefolders=%" PRIu64 "\n",
                    entries_, files_, folders_, bytes_, days_, timeFolders_);
    }

private:
    struct Slot
    {
        unsigned day;
        unsigned second;
        uint64_t weight;
    };

    uint64_t remaining() const { return limit_ - entries_; }

    void runFlat()
    {
        const int dayFd = openDay(0);
        const int timeFd = openTime(dayFd, static_cast<unsigned>(rng_.range(8 * 3600, 20 * 3600)));
        while (remaining() > 0)
            makeItem(timeFd, remaining());
        ::close(timeFd);
        ::close(dayFd);
    }

    void runSmallFolders()
    {
        for (unsigned day = 0; remaining() > 0; ++day) {
            const int dayFd = openDay(day);
            const unsigned count = 40 + rng_.belowU(41);
            std::vector<unsigned> seconds;
            while (seconds.size() < count) {
                const auto s = static_cast<unsigned>(rng_.range(7 * 3600, 86399));
                if (std::find(seconds.begin(), seconds.end(), s) == seconds.end())
                    seconds.push_back(s);
            }
            std::sort(seconds.begin(), seconds.end());
            for (size_t i = 0; i < seconds.size() && remaining() > 0; ++i) {
                const int timeFd = openTime(dayFd, seconds[i]);
                const unsigned items = 12 + rng_.belowU(13);
                for (unsigned k = 0; k < items && remaining() > 0; ++k)
                    makeItem(timeFd, remaining());
                ::close(timeFd);
            }
            ::close(dayFd);
        }
    }

    // Plans a year of time folders first, then spreads N over them by weight. One entry stays
    // reserved for each later time folder, so the whole year appears whenever N allows it;
    // with fewer entries than time folders the later ones are simply never created.
    void runYear()
    {
        std::vector<Slot> slots;
        uint64_t totalWeight = 0;
        for (unsigned day = 0; day < kDaysPerCache; ++day) {
            const unsigned count = 1 + rng_.belowU(12) * rng_.belowU(12) / 11; // 1..12, mostly few
            std::vector<unsigned> seconds;
            while (seconds.size() < count) {
                // Mostly waking hours, now and then at night.
                const auto s = static_cast<unsigned>(
                    rng_.chance(1, 10) ? rng_.below(86400) : rng_.range(7 * 3600, 86399));
                if (std::find(seconds.begin(), seconds.end(), s) == seconds.end())
                    seconds.push_back(s);
            }
            std::sort(seconds.begin(), seconds.end());
            for (const unsigned s : seconds) {
                const uint64_t w = 2 + rng_.below(32) * rng_.below(32);
                slots.push_back({day, s, w});
                totalWeight += w;
            }
        }

        uint64_t cumulative = 0;
        size_t i = 0;
        for (unsigned day = 0; day < kDaysPerCache && remaining() > 0; ++day) {
            int dayFd = -1;
            for (; i < slots.size() && slots[i].day == day && remaining() > 0; ++i) {
                cumulative += slots[i].weight;
                const uint64_t target = limit_ * cumulative / totalWeight;
                if (dayFd < 0) dayFd = openDay(day);
                const int timeFd = openTime(dayFd, slots[i].second);
                const uint64_t slotsAfter = slots.size() - i - 1;
                const uint64_t before = entries_;
                // Every created time folder holds at least one item; trees may overshoot the
                // target, later folders then catch up.
                while (remaining() > 0) {
                    const uint64_t spare = remaining() > slotsAfter ? remaining() - slotsAfter : 0;
                    if (entries_ != before && (entries_ >= target || spare == 0)) break;
                    makeItem(timeFd, std::max<uint64_t>(spare, 1));
                }
                ::close(timeFd);
            }
            if (dayFd >= 0) ::close(dayFd);
        }
    }

    // Day and time folders are reused when they exist (only possible with --force).
    int openFolder(int parentFd, const std::string &name, const char *what)
    {
        if (::mkdirat(parentFd, name.c_str(), 0755) != 0 && errno != EEXIST)
            fail(std::string("cannot create ") + what + " '" + name + "'", errno);
        const int fd =
            ::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0) fail(std::string("cannot open ") + what + " '" + name + "'", errno);
        return fd;
    }

    int openDay(unsigned day)
    {
        const Civil c = civilFromDays(opt_.startDay + day);
        dayName_ = format("%04d-%02u-%02u", c.y, c.m, c.d);
        ++days_;
        return openFolder(rootFd_, dayName_, "day folder");
    }

    int openTime(int dayFd, unsigned second)
    {
        timeName_ = format("%s %02u_%02u_%02u", dayName_.c_str(), second / 3600, second / 60 % 60,
                           second % 60);
        ++timeFolders_;
        return openFolder(dayFd, timeName_, "time folder");
    }

    std::string where(const std::string &name) const
    {
        return "'" + printable(name) + "' in '" + timeName_ + "'";
    }

    // Returns an open descriptor, or -1 if the name is taken.
    int tryCreateFile(int dirFd, const std::string &name)
    {
        const int fd = ::openat(dirFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0 && errno != EEXIST) fail("cannot create file " + where(name), errno);
        return fd;
    }

    int tryCreateFolder(int dirFd, const std::string &name)
    {
        if (::mkdirat(dirFd, name.c_str(), 0755) != 0) {
            if (errno == EEXIST) return -1;
            fail("cannot create folder " + where(name), errno);
        }
        const int fd =
            ::openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
        if (fd < 0) fail("cannot open folder " + where(name), errno);
        return fd;
    }

    uint64_t sizeFor(Weight w)
    {
        const uint64_t r = rng_.below(1000);
        switch (w) {
        case Weight::Light:
            if (r < 60) return 0;
            if (r < 920) return rng_.logUniform(1, 16 * KiB - 1);
            if (r < 995) return rng_.logUniform(16 * KiB, MiB - 1);
            return rng_.logUniform(MiB, 4 * MiB);
        case Weight::Doc:
            if (r < 20) return 0;
            if (r < 620) return rng_.logUniform(512, 16 * KiB - 1);
            if (r < 960) return rng_.logUniform(16 * KiB, MiB - 1);
            return rng_.logUniform(MiB, 5 * MiB);
        case Weight::Heavy:
            break;
        }
        if (r < 10) return 0;
        if (r < 360) return rng_.logUniform(KiB, 16 * KiB - 1);
        if (r < 860) return rng_.logUniform(16 * KiB, MiB - 1);
        return rng_.logUniform(MiB, 6 * MiB);
    }

    void finishFile(int fd, const std::string &name, uint64_t size)
    {
        if (size > 0 && ::ftruncate(fd, static_cast<off_t>(size)) != 0)
            fail("cannot size file " + where(name), errno);
        ::close(fd);
        ++entries_;
        ++files_;
        bytes_ += size;
    }

    // Fresh names for a few tries, then " (2)", " (3)", ... like a file manager would.
    template <typename MakeName, typename TryCreate>
    int createUnique(MakeName makeName, TryCreate tryCreate, Name &chosen, std::string &full)
    {
        for (unsigned attempt = 0;; ++attempt) {
            if (attempt < 4) {
                chosen = makeName();
                full = chosen.stem + chosen.ext;
            } else {
                full = chosen.stem + format(" (%u)", attempt - 2) + chosen.ext;
            }
            const int fd = tryCreate(full);
            if (fd >= 0) return fd;
        }
    }

    void makeFile(int dirFd, Flavor flavor)
    {
        Name name;
        std::string full;
        const int fd =
            createUnique([&] { return names_.file(flavor); },
                         [&](const std::string &n) { return tryCreateFile(dirFd, n); }, name, full);
        finishFile(fd, full, sizeFor(weightOf(name.ext)));
    }

    int makeFolder(int dirFd, Flavor flavor, bool topLevel)
    {
        Name name;
        std::string full;
        const int fd = createUnique(
            [&] {
                return Name{names_.folder(flavor, topLevel), ""};
            },
            [&](const std::string &n) { return tryCreateFolder(dirFd, n); }, name, full);
        ++entries_;
        ++folders_;
        return fd;
    }

    // A deleted folder: 5-200 files (log-uniform) spread over a few levels of subfolders.
    // Uses at most `avail` entries (at least 1: the folder itself).
    void makeTree(int parentFd, uint64_t avail)
    {
        const uint64_t end = entries_ + avail;
        static constexpr Flavor kFlavors[] = {Flavor::Code,   Flavor::Code,   Flavor::Code,
                                              Flavor::Photos, Flavor::Photos, Flavor::Docs,
                                              Flavor::Docs,   Flavor::Docs,   Flavor::Mixed};
        const Flavor flavor = kFlavors[rng_.below(std::size(kFlavors))];
        const uint64_t wantFiles = rng_.logUniform(5, 200);
        const unsigned maxDepth = 1 + rng_.belowU(4);

        struct Dir
        {
            int fd;
            unsigned depth;
        };
        std::vector<Dir> dirs{{makeFolder(parentFd, flavor, true), 0}};
        size_t latest = 0;
        uint64_t files = 0;
        while (files < wantFiles && entries_ < end) {
            if (dirs.size() < 32 && rng_.chance(1, 7)) {
                const size_t parent = rng_.below(dirs.size());
                if (dirs[parent].depth < maxDepth) {
                    dirs.push_back(
                        {makeFolder(dirs[parent].fd, flavor, false), dirs[parent].depth + 1});
                    latest = dirs.size() - 1;
                    continue;
                }
            }
            // Files cluster in the folder made last, like a tree filled one folder at a time.
            const size_t target = rng_.chance(1, 2) ? latest : rng_.below(dirs.size());
            makeFile(dirs[target].fd, flavor);
            ++files;
        }
        for (const Dir &d : dirs)
            ::close(d.fd);
    }

    void makeOdd(int dirFd, const OddItem &item, uint64_t avail)
    {
        const uint64_t end = entries_ + avail;
        const bool asFile = item.children.empty() || opt_.flat;
        const std::string &name = asFile && !item.flatName.empty() ? item.flatName : item.name;
        if (asFile) {
            const int fd = tryCreateFile(dirFd, name);
            if (fd >= 0) finishFile(fd, name, sizeFor(Weight::Light));
            return;
        }
        const int folderFd = tryCreateFolder(dirFd, name);
        if (folderFd < 0) return;
        ++entries_;
        ++folders_;
        for (const std::string &child : item.children) {
            if (entries_ >= end) break;
            const int fd = tryCreateFile(folderFd, child);
            if (fd >= 0) finishFile(fd, child, sizeFor(Weight::Light));
        }
        ::close(folderFd);
    }

    // Creates one deleted item using at most `avail` (>= 1) entries.
    void makeItem(int timeFd, uint64_t avail)
    {
        // Odd names are spread evenly over the whole run.
        if (nextOdd_ < odd_.size() && entries_ >= nextOdd_ * limit_ / odd_.size()) {
            makeOdd(timeFd, odd_[nextOdd_++], avail);
            return;
        }
        if (!opt_.flat && avail >= 2 && rng_.chance(3, 100))
            makeTree(timeFd, avail);
        else
            makeFile(timeFd, Flavor::Mixed);
    }

    const Options &opt_;
    Rng rng_;
    NameMaker names_;
    int rootFd_;
    uint64_t limit_;
    std::vector<OddItem> odd_;
    size_t nextOdd_ = 0;
    std::string dayName_;
    std::string timeName_;

    uint64_t entries_ = 0;
    uint64_t files_ = 0;
    uint64_t folders_ = 0;
    uint64_t bytes_ = 0;
    uint64_t days_ = 0;
    uint64_t timeFolders_ = 0;
};

} // namespace

int main(int argc, char **argv)
{
    const Options opt = parseArgs(argc, argv);
    const int rootFd = openOutputDir(opt);
    Generator gen(opt, rootFd);
    gen.run();
    ::close(rootFd);
    gen.printSummary();
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::fprintf(stderr, "gen_cache: cannot write the summary\n");
        return 1;
    }
    return 0;
}
