#pragma once

// The commands of `salvora`; each returns the process exit status.
namespace Commands {
int volumes(int argc, char **argv);
int days(int argc, char **argv);
int ls(int argc, char **argv);
int size(int argc, char **argv);
int status(int argc, char **argv);
int restore(int argc, char **argv);
int remove(int argc, char **argv);
int rm(int argc, char **argv);
int keep(int argc, char **argv);
int usage(const char *command, bool toStderr);
} // namespace Commands
