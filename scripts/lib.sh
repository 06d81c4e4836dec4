# Shared by the scripts beside it: where the 32-bit Java and libraries are kept, and how that Java is started.
# shellcheck shell=bash

TMQKCI_CACHE="${TMQKCI_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tmqkci-dev}"
TMQKCI_I386_ROOT="$TMQKCI_CACHE/i386"
export TMQKCI_CACHE TMQKCI_I386_ROOT

TMQKCI_JAVA32_HOME="${JAVA32_HOME:-$TMQKCI_I386_ROOT/usr/lib/jvm/java-17-openjdk-i386}"
TMQKCI_I386_LIBS="$TMQKCI_I386_ROOT/lib/i386-linux-gnu:$TMQKCI_I386_ROOT/usr/lib/i386-linux-gnu"
export TMQKCI_JAVA32_HOME TMQKCI_I386_LIBS

# Runs the 32-bit Java with the given arguments.
tmqkci_java32() {
  LD_LIBRARY_PATH="$TMQKCI_I386_LIBS${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" "$TMQKCI_JAVA32_HOME/bin/java" "$@"
}
