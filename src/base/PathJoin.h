#pragma once

#include <utility>

// Joining paths by hand goes wrong at "/" and at folders given with a trailing slash. Paths are
// bytes: these work on std::string and QByteArray alike.

// The folder with exactly one slash added when it has none at its end ("" gives "/"): the prefix
// that a loop over a folder's names appends each name to.
template <typename Bytes> Bytes folderPrefix(Bytes folder)
{
    if (folder.size() == 0 || folder.back() != '/') folder.push_back('/');
    return folder;
}

// A name inside a folder: "folder/name" ("/" and "a" give "/a", "f/" and "a" give "f/a").
template <typename Bytes, typename Name> Bytes joinPath(Bytes folder, const Name &name)
{
    folder = folderPrefix(std::move(folder));
    folder.append(name);
    return folder;
}
