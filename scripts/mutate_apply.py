#!/usr/bin/env python3
"""Reads scripts/mutations.txt and applies one mutation; used by scripts/mutate.sh.

  mutate_apply.py list FILE            one line per mutation: ID<TAB>REGEX
  mutate_apply.py apply FILE ID BACKUP applies ID, copying the file first to BACKUP; prints
                                       "applied PATH", "not-found" or "ambiguous N"
  mutate_apply.py where FILE           for each mutation, where its text is found (no change)

The text is looked for in the hinted file first; when that file no longer holds it exactly
once, in every source file under src/, where it must occur exactly once.
"""
import os
import shutil
import sys

SEPARATOR = " @@ "
SOURCE_SUFFIXES = (".cpp", ".h", ".c", ".hpp")


def parse(path):
    mutations = []
    with open(path, encoding="utf-8") as f:
        for number, raw in enumerate(f, 1):
            line = raw.rstrip("\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            fields = [x.strip() for x in line.split(SEPARATOR.strip())]
            if len(fields) != 5 or not fields[0] or not fields[2] or not fields[4]:
                sys.exit(f"{path}:{number}: expected 5 fields separated by '@@'")
            ident, hint, find, replace, regex = fields
            find = find.replace("\\n", "\n")
            replace = replace.replace("\\n", "\n")
            if find == replace:
                sys.exit(f"{path}:{number}: the replacement changes nothing")
            mutations.append((ident, hint, find, replace, regex))
    idents = [m[0] for m in mutations]
    if len(set(idents)) != len(idents):
        sys.exit(f"{path}: a mutation id is used twice")
    return mutations


def read(path):
    with open(path, "rb") as f:
        return f.read()


def sources(root):
    for folder, dirs, files in os.walk(os.path.join(root, "src")):
        dirs.sort()
        for name in sorted(files):
            if name.endswith(SOURCE_SUFFIXES):
                yield os.path.join(folder, name)


def locate(root, hint, find):
    """(path, None) when found once; (None, count) otherwise."""
    needle = find.encode()
    hinted = os.path.join(root, hint)
    if os.path.isfile(hinted) and read(hinted).count(needle) == 1:
        return hinted, None
    found = [(p, read(p).count(needle)) for p in sources(root)]
    found = [(p, n) for p, n in found if n]
    total = sum(n for _, n in found)
    if total == 1:
        return found[0][0], None
    return None, total


def main():
    command, listing = sys.argv[1], sys.argv[2]
    root = os.path.dirname(os.path.dirname(os.path.abspath(listing)))
    mutations = parse(listing)
    if command == "list":
        for ident, _, _, _, regex in mutations:
            print(f"{ident}\t{regex}")
    elif command == "where":
        for ident, hint, find, _, _ in mutations:
            path, count = locate(root, hint, find)
            print(f"{ident}\t{os.path.relpath(path, root) if path else f'NOT FOUND ({count} matches)'}")
    elif command == "apply":
        ident, backup = sys.argv[3], sys.argv[4]
        match = [m for m in mutations if m[0] == ident]
        if not match:
            sys.exit(f"unknown mutation {ident}")
        _, hint, find, replace, _ = match[0]
        path, count = locate(root, hint, find)
        if not path:
            print("not-found" if count == 0 else f"ambiguous {count}")
            return
        shutil.copyfile(path, backup)
        text = read(path).replace(find.encode(), replace.encode(), 1)
        # Written in place, so that the file keeps its inode and mode.
        with open(path, "r+b") as f:
            f.write(text)
            f.truncate()
        print(f"applied {os.path.relpath(path, root)}")
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
