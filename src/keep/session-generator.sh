#!/bin/sh
# systemd user environment generator: preloads the library that keeps what programs delete, for a
# user who turned it on (`salvora keep on` writes SALVORA3_KEEP_LIBRARY to
# ~/.config/environment.d, which an earlier generator has read by now). The package installs this
# file and removes it: once the library is gone nothing names it in LD_PRELOAD, where the loader
# would complain in every program of the session.
lib=$SALVORA3_KEEP_LIBRARY
[ -n "$lib" ] && [ -f "$lib" ] && [ -r "$lib" ] || exit 0
case " $LD_PRELOAD " in *" $lib "*) exit 0 ;; esac
echo "LD_PRELOAD=$lib${LD_PRELOAD:+ $LD_PRELOAD}"
