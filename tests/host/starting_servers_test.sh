#!/bin/bash
# Runs the commands that docs/starting-servers.md shows, in an installation folder made for them, and compares what they
# print with what the page shows. Process ids vary.
# usage: starting_servers_test.sh SOURCE_FOLDER LIBRARY MESSAGE_FILE
set -u
source="$1" library="$2" messages="$3"
page="$source/docs/starting-servers.md"

KESTRUNE="$(mktemp -d)"
export KESTRUNE
trap 'rm -rf "$KESTRUNE"' EXIT
mkdir "$KESTRUNE/lib" "$KESTRUNE/sys" "$KESTRUNE/work"
ln -s "$library" "$KESTRUNE/lib/"
ln -s "$messages" "$KESTRUNE/sys/english67.err"
ln -s "$source/include" "$KESTRUNE/include"
cp "$source"/docs/starting-servers/*.c "$KESTRUNE/work"
cd "$KESTRUNE/work" || exit 1

shown="$(sed -n '/^```console$/,/^```$/p' "$page" | grep -v '^```')"
commands="$(grep -c '^\$ ' <<<"$shown")"
printed="$(grep '^\$ ' <<<"$shown" | while read -r _ command; do
  echo "\$ $command"
  timeout 60 bash -c "$command" 2>&1
done)"

without_ids() { sed -E 's/([Pp]rocess) [0-9]+/\1 ID/'; }
if [ "$commands" -lt 4 ] || ! diff <(without_ids <<<"$shown") <(without_ids <<<"$printed"); then
  echo "The page's transcript (<) is not what its commands print (>)."
  exit 1
fi
