#!/usr/bin/env bash
# Installs the build tree into a fresh prefix the way a user without root
# does (cmake --install --prefix), checks that every installed file is under
# that prefix, that the installed tool runs from there, and builds the
# consumer project against the installed library both ways.
#   install_check.sh BUILD-DIR SOURCE-DIR
set -euo pipefail
build=$1
source=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
outside=$(grep -v "^$prefix/" "$build/install_manifest.txt" || true)
if [ -n "$outside" ]; then
  echo "installed outside the prefix $prefix:" >&2
  echo "$outside" >&2
  exit 1
fi
# Nothing but the manifest may name the file: the count must match.
[ "$(wc -l <"$build/install_manifest.txt")" -eq "$(find "$prefix" -type f -o -type l | wc -l)" ] \
  || { echo "install_manifest.txt and $prefix disagree" >&2; exit 1; }

"$prefix/bin/tidewell-import" --json "$source/examples/plain.eml" | grep -q '"kMDItemSubject":"Agenda for Thursday' \
  || { echo "the installed tidewell-import did not print the subject" >&2; exit 1; }
env -u LD_LIBRARY_PATH "$source/tests/consumer/check" "$prefix"
