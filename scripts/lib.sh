# Shared by the scripts beside it: where the 32-bit Java and libraries are kept, which Javas there are, and how they are
# started.
# shellcheck shell=bash

TMQKCI_CACHE="${TMQKCI_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tmqkci-dev}"
TMQKCI_I386_ROOT="$TMQKCI_CACHE/i386"
export TMQKCI_CACHE TMQKCI_I386_ROOT

TMQKCI_JAVA32_HOME="${JAVA32_HOME:-$TMQKCI_I386_ROOT/usr/lib/jvm/java-17-openjdk-i386}"
TMQKCI_I386_LIBS="$TMQKCI_I386_ROOT/lib/i386-linux-gnu:$TMQKCI_I386_ROOT/usr/lib/i386-linux-gnu"
export TMQKCI_JAVA32_HOME TMQKCI_I386_LIBS

# tmqkci_java HOME ARGUMENT...: runs that Java, with leave to load the bridge. The folders are for a 32-bit one, and
# nothing to others.
tmqkci_java() {
  local home=$1
  shift
  LD_LIBRARY_PATH="$TMQKCI_I386_LIBS${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" \
    "$home/bin/java" --enable-native-access=ALL-UNNAMED "$@"
}

# tmqkci_javas64: the 64-bit Javas here of version 17 or later, each in a line with its version before it: that of
# JAVA_HOME, that of PATH, and those where Debian installs them.
tmqkci_javas64() {
  local command home settings version
  command=$(command -v java || true)
  for home in "${JAVA_HOME-}" "${command:+$(dirname "$(dirname "$(readlink -f "$command")")")}" /usr/lib/jvm/*; do
    [ -n "$home" ] && [ -x "$home/bin/java" ] || continue
    settings=$("$home/bin/java" -XshowSettings:properties -version 2>&1) || continue
    version=$(sed -n "s/^ *java[.]class[.]version = \([0-9]*\).*/\1/p" <<<"$settings")
    version=$((version - 44)) # class files of Java 1 had number 45
    grep -q 'os\.arch = amd64' <<<"$settings" && [ "$version" -ge 17 ] && echo "$version $(readlink -f "$home")"
  done | awk '!seen[$0]++'
}

# tmqkci_test_javas: the Javas that tests run in, each in a line after the name of the configuration: the 32-bit one, a
# 64-bit one of version 17, and the newest 64-bit one if that is another.
tmqkci_test_javas() {
  local javas oldest newest
  echo "java32 $TMQKCI_JAVA32_HOME"
  javas=$(tmqkci_javas64 | sort -s -n -k 1,1)
  oldest=$(head -n 1 <<<"$javas")
  newest=$(tail -n 1 <<<"$javas")
  [ -z "$oldest" ] || echo "java64 ${oldest#* }"
  [ "${newest%% *}" = "${oldest%% *}" ] || echo "java64newest ${newest#* }"
}
