#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# The real tracker-extract-3 with the build tree's module on a large message
# file that is truncated, again and again, while the module has it open or
# mapped. Whatever the module then reads, the process must end by itself,
# with a result or a clean error, and never by a signal: a module that maps
# the file dies of SIGBUS once the pages under the mapping are gone.
#   truncate_check.py EXTRACT
import json, os, signal, subprocess, sys, tempfile, time

SIZE = 150 << 20  # past the module's 64 MiB bound, so it reads all it may
ROUNDS = 4
SIZES = (0, 1, 4096, 0, 65536, 300, 0)  # cycled while the process reads
DEADLINE = 30  # tracker-extract's own deadline for a file


def write_message(path):
    line = b"The keeper counts the ships that pass the harbour wall at night, one by one.\n"
    chunk = line * (1 << 13)
    with open(path, "wb") as message:
        message.write(b"From: Harbour Keeper <keeper@example.org>\nTo: desk@example.org\nSubject: The night log\n"
                      b"Date: Mon, 06 Oct 2025 20:03:55 +0200\nContent-Type: text/plain; charset=utf-8\n\n")
        for _ in range(SIZE // len(chunk)):
            message.write(chunk)


def holds(pid, path):
    # Whether the process has path open or mapped.
    try:
        for fd in os.listdir(f"/proc/{pid}/fd"):
            if os.readlink(f"/proc/{pid}/fd/{fd}") == path:
                return True
        with open(f"/proc/{pid}/maps") as maps:
            return path in maps.read()
    except OSError:
        return False


def one_round(tool, folder, number):
    # One run: a failure text or None, and how often the file was cut under it.
    path = os.path.join(folder, "night-log.eml")
    write_message(path)
    with tempfile.TemporaryFile(dir=folder) as out, tempfile.TemporaryFile(dir=folder) as err:
        run = subprocess.Popen([tool, "--file", path, "--output-format=json-ld"], stdout=out, stderr=err)
        end, cut = time.monotonic() + DEADLINE, 0
        while run.poll() is None and time.monotonic() < end:
            if cut or holds(run.pid, path):
                os.truncate(path, SIZES[cut % len(SIZES)])
                cut += 1
                time.sleep(0.0005)
        if run.poll() is None:
            run.kill()
            run.wait()
            return f"round {number}: still running after {DEADLINE} s", cut
        if run.returncode < 0:
            return f"round {number}: killed by {signal.Signals(-run.returncode).name} after {cut} cuts", cut
        out.seek(0)
        err.seek(0)
        if run.returncode == 0:
            try:
                doc = json.load(out)
            except ValueError as error:
                return f"round {number}: exit 0 without a result: {error}", cut
            if doc.get("@type") != "nfo:TextDocument":
                return f"round {number}: not the module's result: {doc.get('@type')!r}", cut
        elif not err.read().strip():
            return f"round {number}: exit {run.returncode} without an error message", cut
        print(f"round {number}: {cut} cuts, exit {run.returncode}")
        return None, cut


if __name__ == "__main__":
    failures, cut_under = [], 0
    started = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="tidewell-truncate-") as folder:
        for number in range(ROUNDS):
            failure, cuts = one_round(sys.argv[1], folder, number)
            failures += [failure] if failure else []
            cut_under += cuts > 0
    # A round whose process read the file before it could be seen holding it
    # proves nothing; every round missing it would mean the test tests nothing.
    if not cut_under:
        failures.append("the file was never truncated while the process held it")
    print(f"{ROUNDS} rounds, {cut_under} truncated under the reader, {time.monotonic() - started:.1f} s")
    print("\n".join(f"FAIL {failure}" for failure in failures))
    sys.exit(1 if failures else 0)
