#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Every symbol the shared libtidewell exports is in one of its own namespaces
(the version script hides the standard library's and Boost's), and the entry
points users call are there.  exports.py LIBRARY NAMESPACE..."""
import re
import subprocess
import sys


def mangled_prefixes(namespace):
    nested = "".join(f"{len(part)}{part}" for part in namespace.split("::"))
    return [f"_ZN{nested}", f"_ZNK{nested}", f"_ZTVN{nested}", f"_ZTIN{nested}", f"_ZTSN{nested}",
            f"_ZGVN{nested}", f"_ZZN{nested}", f"_ZGVZN{nested}"]


def main():
    library, namespaces = sys.argv[1], sys.argv[2:]
    out = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    # Skip the version node (type A): it is the script's, not a symbol of ours.
    symbols = [f[-1] for f in (line.split() for line in out.splitlines()) if len(f) >= 2 and f[-2] != "A"]
    prefixes = tuple(p for ns in namespaces for p in mangled_prefixes(ns))
    foreign = [s for s in symbols if not s.startswith(prefixes)]
    failures = []
    if foreign:
        demangled = subprocess.run(["c++filt"], input="\n".join(foreign[:20]), capture_output=True, text=True).stdout
        failures.append(f"{len(foreign)} exported symbols outside the library's namespaces, e.g.:\n{demangled}")
    # One entry point of each part users call.
    wanted = {
        "tidewell::parse": r"_ZN8tidewell5parse",
        "tidewell::parse_file": r"_ZN8tidewell10parse_file",
        "tidewell::parse_fd": r"_ZN8tidewell8parse_fd",
        "tidewell::expand": r"_ZN8tidewell6expand",
        "tidewell::mbox_reader_t::next": r"_ZN8tidewell13mbox_reader_t4next",
        "tidewell::is_envelope_line": r"_ZN8tidewell16is_envelope_line",
        "importer::import_file": r"_ZN8importer11import_file",
        "email::quick_parse_headers": r"_ZN5email19quick_parse_headers",
        "date::rfc822_date_t::rfc822_date_t": r"_ZN4date13rfc822_date_tC",
        "quern::error::handler_t::push_back": r"_ZN5quern5error9handler_t9push_back",
        "charset::convert_to_utf8": r"_ZN7charset15convert_to_utf8",
    }
    for name, pattern in wanted.items():
        if not any(re.match(pattern, s) for s in symbols):
            failures.append(f"{name} is not exported")
    if len(symbols) > 2000:
        failures.append(f"{len(symbols)} exported symbols: is everything exported?")
    for failure in failures:
        print(failure, file=sys.stderr)
    print(f"{len(symbols)} exported symbols checked")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
