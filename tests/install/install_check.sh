#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
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
# Every file in the prefix is one the manifest names (none written behind
# CMake's back, which an uninstall would leave).
if ! diff <(sort -u "$build/install_manifest.txt") <(find "$prefix" -type f -o -type l | sort) >&2; then
  echo "install_manifest.txt and the files in $prefix disagree" >&2
  exit 1
fi

"$prefix/bin/tidewell-import" --json "$source/examples/plain.eml" | grep -q '"subject":"Agenda for Thursday' \
  || { echo "the installed tidewell-import did not print the subject" >&2; exit 1; }
env -u LD_LIBRARY_PATH "$source/tests/consumer/check" "$prefix"
