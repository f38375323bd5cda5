#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""tidewell-import as a user runs it, one CTest test per behaviour: each
case builds its files in a temporary folder, runs the tool and checks its
output, standard error and exit status (cli_usage.py --binary B CASE)."""
import argparse, json, os, pty, re, resource, signal, socket, subprocess, sys, tempfile, time, urllib.parse

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
EXAMPLES = os.path.join(SOURCE, "examples")
CORPUS = os.path.join(os.path.dirname(SOURCE), "shared", "corpus")

BINARY = None
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL:", what)


def run(*args, stdin=None, cwd=None, timeout=120, prefix=()):
    p = subprocess.run([*prefix, BINARY, *args], input=stdin, cwd=cwd, timeout=timeout, capture_output=True)
    return p.returncode, p.stdout, p.stderr.decode(errors="replace")


def records(out):
    return [json.loads(line) for line in out.splitlines()]


def fields(record):
    """What a record says of its message, without where it came from."""
    return {k: v for k, v in record.items() if k not in ("path", "message")}


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def example(name):
    with open(os.path.join(EXAMPLES, name), "rb") as f:
        return f.read()


def roots():
    """The examples, and the corpus when it is there."""
    return [EXAMPLES] + ([os.path.join(CORPUS, "messages")] if os.path.isdir(CORPUS) else [])


def case_errors(tmp):
    # Usage errors exit 2, help and version 0; an empty file is a message, a
    # file of another content type is not imported.
    check([run(*a)[0] for a in ([], ["--bogus", "x"], ["--content-type"], ["--full", "--desktop", "x"], ["--help"])]
          == [2, 2, 2, 2, 0], "statuses")
    check(run("--version")[1].startswith(b"tidewell-import "), "--version")
    write(os.path.join(tmp, "empty.eml"), b"")
    plain = os.path.join(EXAMPLES, "plain.eml")
    other = ["--json", "--content-type", "public.plain-text", plain]
    full = records(run(*other)[1])
    check(run(os.path.join(tmp, "empty.eml"))[0] == 0 and len(full) == 1 and not full[0]["imported"]
          and full[0]["subject"] is None and records(run("--desktop", *other)[1])
          == [{"path": plain, "imported": False, "attributes": {}}], "empty, and other content types")
    # One job: diagnostics come from the workers, in task order only then.
    # The desktop importer writes a line of its own before the tool's.
    missing = "No such file or directory"
    for extra, own in (([], []), (["--desktop"], ["fopen: " + missing])):
        status, out, err = run("--json", "-j", "1", *extra, "nope1.eml", plain, "nope2.eml", cwd=tmp)
        lines = records(out)
        check(status == 1, "a missing file exits 1")
        check([(r["path"], r.get("error"), r["imported"]) for r in lines][0::2] == [("nope1.eml", missing, False),
              ("nope2.eml", missing, False)] and lines[1]["imported"], "each path keeps its record, saying why")
        check(err.splitlines() == own + ["tidewell-import: nope1.eml: " + missing] + own +
              ["tidewell-import: nope2.eml: " + missing], "%s the path and why: %s" % (extra, err))
    status, out, err = run("examples/plain.eml/x", cwd=SOURCE)
    check(status == 1 and "tidewell-import: examples/plain.eml/x: Not a directory" in err, "ENOTDIR: " + err)
    # Permissions: root reads everything, so as root the tool runs as nobody.
    as_user = ["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"] if os.geteuid() == 0 else []
    os.chmod(tmp, 0o755)
    os.makedirs(os.path.join(tmp, "walk", "locked"))
    for name in ("a.eml", "secret.eml"):
        write(os.path.join(tmp, "walk", name), example("plain.eml"))
    for name in ("locked", "secret.eml"):
        os.chmod(os.path.join(tmp, "walk", name), 0)
    status, out, err = run("--json", "--summary", "-j", "1", "walk", cwd=tmp, prefix=as_user)
    check(status == 1 and [r.get("error") for r in records(out)] == [None, "Permission denied", "Permission denied"],
          "unreadable folder and file: %r" % out)
    # The folder has its record, but it is not a file.
    summary = err.splitlines().pop() if err else ""
    check(summary.startswith("2 files, 1 imported, 1 with text, 1 unreadable, 1 unreadable folders, "),
          "the summary: " + summary)
    err = "\n".join(err.splitlines()[:-1])
    check(err.splitlines() == ["tidewell-import: walk/locked: Permission denied",
                               "tidewell-import: walk/secret.eml: Permission denied"], "unreadable: " + err)


LIMIT = 256 << 20


def measured(*args, stdin=None, cwd=None):
    """Status, output and standard error of one run, and its peak resident set in bytes."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    status, out, err = run(*args, stdin=stdin, cwd=cwd, timeout=300)
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    # ru_maxrss of the children is the largest of any one: a run that peaked
    # below an earlier one is not measured, so the biggest run goes first.
    check(peak > before, "the peak resident set was measured")
    return status, out, err, peak << 10


def case_big_files(tmp):
    # A sparse file of 2 TiB beside an ordinary message: the message's record
    # and one for the start of the big file, in memory bounded by the limit.
    folder = os.path.join(tmp, "mail")
    os.makedirs(folder)
    huge = os.path.join(folder, "huge.eml")
    try:
        with open(huge, "wb") as f:
            f.truncate(2 << 40)
    except OSError as e:
        print("SKIP: the file system refuses a 2 TiB sparse file:", e)
        return
    write(os.path.join(folder, "plain.eml"), example("plain.eml"))
    status, out, err, peak = measured("--json", "--summary", "-j", "2", folder)
    print("peak RSS over a folder with a 2 TiB file: %d MiB" % (peak >> 20))
    lines = records(out)
    alone = records(run("--json", os.path.join(EXAMPLES, "plain.eml"))[1])[0]
    check(status == 1 and [r["path"] for r in lines] == [huge, os.path.join(folder, "plain.eml")],
          "two records, exit status 1: %d %s" % (status, err))
    check(lines and lines[0]["imported"] and lines[0].get("cut") is True and "error" not in lines[0],
          "the big file's start, marked as cut: %r" % lines[:1])
    check(len(lines) == 2 and fields(lines[1]) == fields(alone), "the ordinary record as ever")
    check("huge.eml: cut: only the first 268435456 bytes were read" in err and ", 1 cut, " in err, "reported: " + err)
    check(peak < 2 * LIMIT + (100 << 20), "peak RSS %d MiB within twice the limit and 100 MiB" % (peak >> 20))
    # Endless standard input ends with the start of it.
    with open("/dev/zero", "rb") as zero:
        p = subprocess.run([BINARY, "--json", "-"], stdin=zero, capture_output=True, timeout=300)
    check(p.returncode == 1 and [(r["path"], r.get("cut")) for r in records(p.stdout)] == [("-", True)],
          "/dev/zero: %d %r" % (p.returncode, p.stdout[:200]))


def case_max_message_size(tmp):
    # A message of exactly the limit is whole; one byte more is cut, in both
    # readings, from a file, an mbox and standard input alike.
    head = b"Subject: sized\nFrom: a@example.org\n\n"
    exact = head + b"x" * (1023 - len(head)) + b"\n"
    longer = exact + b"y"
    write(os.path.join(tmp, "exact.eml"), exact)
    write(os.path.join(tmp, "longer.eml"), longer)
    write(os.path.join(tmp, "box"), mboxrd([longer, exact]))
    for reading, text in (([], "text"), (["--desktop"], "kMDItemTextContent")):
        def text_of(r):
            return r[text] if not reading else r["attributes"].get(text)
        status, out, err = run("--json", *reading, "--max-message-size", "1K", "exact.eml", "longer.eml", cwd=tmp)
        lines = records(out)
        check(status == 1 and [r.get("cut") for r in lines] == [None, True], "%s files: %r" % (reading, lines))
        check([text_of(r) for r in lines] == ["x" * (1023 - len(head)) + "\n"] * 2, "%s the start is read" % reading)
        whole = records(run("--json", *reading, "exact.eml", cwd=tmp)[1])
        check(lines[:1] == whole, "%s a message within the limit gives its record as ever" % reading)
        status, out, _ = run("--json", *reading, "--mbox", "--max-message-size=1k", "box", cwd=tmp)
        check(status == 1 and [r.get("cut") for r in records(out)] == [True, None], "%s mbox: %r" % (reading, out))
        status, out, _ = run("--json", *reading, "--max-message-size", "1024", "-", stdin=longer)
        check(status == 1 and [r.get("cut") for r in records(out)] == [True], "%s stdin" % reading)
        listing = run(*reading, "--max-message-size", "1K", "longer.eml", cwd=tmp)[1].decode()
        check("\n  (cut: only the start of the message was read)\n" in listing, "%s listing: %s" % (reading, listing))
    for bad in ("0", "-1", "1T", "12KB", "", "99999999999G"):
        check(run("--max-message-size", bad, "exact.eml", cwd=tmp)[0] == 2, "usage error: %r" % bad)
    # A message that needs more memory than the process may have fails
    # alone; the next one is imported.
    big = os.path.join(tmp, "big.eml")
    write(big, head + (b"z" * 75 + b"\n") * ((160 << 20) // 76))
    limit = "ulimit -v %d; exec \"$@\"" % (450 << 10)
    p = subprocess.run(["sh", "-c", limit, "sh", BINARY, "--json", "-j", "1", "--max-message-size", "1G", big,
                        os.path.join(tmp, "exact.eml")], capture_output=True, timeout=300)
    lines = records(p.stdout)
    if b"ReserveShadowMemoryRange" in p.stderr:
        # A sanitizer build reserves terabytes of shadow memory at start,
        # which no address-space limit leaves room for.
        print("max_message_size: the memory-limit check needs a build without sanitizers; skipped")
        return
    check(p.returncode == 1 and [(r["imported"], r.get("error")) for r in lines]
          == [(False, "not enough memory to import it"), (True, None)], "out of memory: %d %r %s"
          % (p.returncode, [{k: v for k, v in r.items() if k != "text"} for r in lines], p.stderr[-300:]))


def case_stops(tmp):
    # SIGTERM or SIGINT while the output goes into a pipe read slowly: every
    # line read is whole, the summary is printed, and the status tells which.
    folder = os.path.join(tmp, "many")
    body = example("plain.eml") + b"".join(b"line %d of a long text\n" % i for i in range(2000))
    for i in range(600):
        write(os.path.join(folder, "%04d.eml" % i), body)
    for sig, status in ((signal.SIGTERM, 143), (signal.SIGINT, 130)) * 3:
        p = subprocess.Popen([BINARY, "--json", "--summary", "-j", "2", folder], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        out = p.stdout.read(256 << 10)
        time.sleep(0.05)
        p.send_signal(sig)
        while chunk := p.stdout.read(64 << 10):
            out += chunk
            time.sleep(0.01)
        err = p.stderr.read().decode(errors="replace")
        code = p.wait(timeout=60)
        lines = out.split(b"\n")
        try:
            whole = lines[-1] == b"" and all(json.loads(l)["imported"] for l in lines[:-1])
        except ValueError:
            whole = False
        check(code == status and whole, "%s: status %d, %d lines, ends %r" % (sig.name, code, len(lines), out[-40:]))
        check(len(lines) - 1 < 600 and re.search(r"^\d+ files, ", err, re.M), "stopped early, summary: " + err)


def case_path_bytes(tmp):
    # Names that differ only in a byte that is not UTF-8 print the same
    # "path" but different "path_bytes", each decoding to its name's bytes.
    names = [b"caf\xe9.eml", b"caf\xe8.eml", b"caf%E9.eml"]
    for name in names:
        write(os.path.join(os.fsencode(tmp), name), example("plain.eml"))
    status, out, _ = run("--json", "-j", "1", ".", cwd=tmp)
    lines = sorted(records(out), key=lambda r: ("path_bytes" in r, r.get("path_bytes", "")))
    by_bytes = [urllib.parse.unquote_to_bytes(r["path_bytes"]) if "path_bytes" in r else None for r in lines]
    check(status == 0 and by_bytes == [None, b"./caf\xe8.eml", b"./caf\xe9.eml"], "path_bytes: %r" % lines)
    check(lines[1]["path"] == lines[2]["path"] == "./caf\ufffd.eml", "path keeps U+FFFD")
    listing = run(os.fsdecode(names[0]), cwd=tmp)[1].decode()
    check(listing.startswith("caf%E9.eml\n  (the path is not UTF-8"), "the listing: %r" % listing[:80])


def case_write_errors(tmp):
    with open("/dev/full", "wb") as full:
        p = subprocess.run([BINARY, "--json", EXAMPLES], stdout=full, stderr=subprocess.PIPE, timeout=60)
    check(p.returncode == 1 and b"tidewell-import: standard output: No space left on device" in p.stderr, "ENOSPC")
    # Enough output to fill the pipe, whose reader is gone.
    p = subprocess.Popen([BINARY, "--json", "-j", "1"] + [EXAMPLES] * 200, stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE)
    p.stdout.close()
    err = p.stderr.read()
    check(p.wait(timeout=60) == 1 and b"tidewell-import: standard output: Broken pipe" in err, "EPIPE: %r" % err)


def case_special_files(tmp):
    fifo = os.path.join(tmp, "fifo")
    os.mkfifo(fifo)
    server = socket.socket(socket.AF_UNIX)
    server.bind(os.path.join(tmp, "socket"))
    for path, kind in ((fifo, "a FIFO"), (os.path.join(tmp, "socket"), "a socket"), ("/dev/null", "a character")):
        started = time.monotonic()
        status, out, err = run("--json", path, timeout=10)
        check(time.monotonic() - started < 1, path + " refused within a second")
        check(status == 1 and records(out)[0]["error"].startswith("not a regular file (" + kind), path + ": " + err)
        check(err.startswith("tidewell-import: " + path + ": not a regular file"), "refusal names the path: " + err)
    # In a walk they are skipped and counted, not errors.
    write(os.path.join(tmp, "mail.eml"), example("plain.eml"))
    status, out, err = run("--json", "--summary", tmp, timeout=10)
    check(status == 0 and [r["path"] for r in records(out)] == [os.path.join(tmp, "mail.eml")], "walk: " + err)
    check("1 files, 1 imported, 1 with text, 0 unreadable, 2 skipped, " in err, "skipped are counted: " + err)
    server.close()


def case_stdin(tmp):
    write(os.path.join(tmp, "empty.eml"), b"")
    for reading in ([], ["--desktop"]):
        for name in sorted(os.listdir(EXAMPLES)) + [None]:  # None: empty input is an empty message
            status, out, _ = run("--json", *reading, "-", stdin=example(name) if name else b"")
            path = os.path.join(EXAMPLES, name) if name else os.path.join(tmp, "empty.eml")
            want = fields(records(run("--json", *reading, path)[1])[0])
            check(status == 0 and [(r["path"], fields(r)) for r in records(out)] == [("-", want)],
                  "- reads %s %s" % (name, reading))


def mboxrd(messages, separator=b"From - Mon Jan  1 00:00:00 2024\n"):
    """An mbox as a careful writer makes it: quote ^>*From , blank line after each."""
    out = b""
    for message in messages:
        lines = message.splitlines(keepends=True)
        quoted = [b">" + l if l.lstrip(b">").startswith(b"From ") else l for l in lines]
        out += separator + b"".join(quoted) + b"\n"
    return out


def case_mbox(tmp):
    bodies = [b"Subject: one\n\nFrom time to time\n>From here\n>>From there\n",
              b"Subject: two\n\nFrom Russia with love\n\n\n",
              b"Subject: three\r\n\r\nthird\r\n"]
    path = os.path.join(tmp, "box")
    write(path, mboxrd(bodies[:2]) + mboxrd(bodies[2:], b"From someone@example.org Tue Jan  2 10:11:12 2024\n"))
    status, out, err = run("--json", "--mbox", path)
    lines = records(out)
    check(status == 0 and [(r["path"], r["message"]) for r in lines] == [(path, 1), (path, 2), (path, 3)],
          "three records numbered from 1: " + out.decode())
    for record, body in zip(lines, bodies):
        single = records(run("--json", "-", stdin=body)[1])[0]
        check(fields(record) == fields(single), "message %d as imported alone" % record["message"])
    check("From here\n" in lines[0]["text"] and lines[2]["subject"] == "three", ">From unquoted once, CR LF read")
    desktop = records(run("--json", "--crlf", "--mbox", path)[1])
    check([r["attributes"].get("kMDItemSubject") for r in desktop] == ["one", "two", "three"], "the desktop reading")
    status, text, err = run("--mbox", "--summary", path)
    check(text.decode().startswith(path + ":1\n"), "the listing names PATH:N")
    check(err.startswith("3 messages, 3 imported, 3 with text, 0 unreadable, "), "messages are counted: " + err)
    # Streamed: memory grows with the largest message, not with the mbox.
    big = os.path.join(tmp, "big")
    chunk = mboxrd([example("mixed-attachment.eml")] * 1000)
    rounds = (64 << 20) // len(chunk) + 1
    write(big, chunk * rounds)
    copies = 1000 * rounds
    split = records(run("--json", "--mbox", big)[1])
    alone = fields(records(run("--json", os.path.join(EXAMPLES, "mixed-attachment.eml"))[1])[0])
    same = sum(fields(r) == alone for r in split)
    check(len(split) == copies and same == copies, "%d of %d messages read across the read chunks" % (same, copies))
    small, large = peak_rss("--json", "--mbox", "-j", "2", path), peak_rss("--json", "--mbox", "-j", "2", big)
    print("peak RSS: %d KiB for 3 messages, %d KiB for a %d MiB mbox" % (small, large, os.path.getsize(big) >> 20))
    check(large - small < 16 << 10, "memory bounded by the messages, not the mbox")


def peak_rss(*args):
    """The peak resident set of one run in KiB, measured in a fresh process."""
    script = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, check=True);"
              "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
    # A sanitized build would otherwise keep freed memory in quarantine.
    env = dict(os.environ, ASAN_OPTIONS="quarantine_size_mb=0:detect_leaks=0")
    return int(subprocess.run([sys.executable, "-c", script, BINARY, *args], stdout=subprocess.PIPE, env=env,
                              check=True, timeout=600).stdout)


def case_maildir(tmp):
    mail = example("plain.eml")
    root = os.path.join(tmp, "Mail")
    taken = ["cur/1:2,S", "new/2", ".Sent/cur/3:2,S", "Archive/2024/cur/4"]
    ignored = ["subscriptions", "tmp/5", "dovecot.index", "dovecot-uidlist", ".notmuch/xapian/record.glass", ".mu/x",
               "cur/.hidden", ".hidden-folder/cur/6", "Archive/2024/tmp/7", ".Sent/dovecot.index.log",
               ".notmaildir/cur/8"]
    for name in taken + ignored:
        write(os.path.join(root, name), mail)
    for folder in ("new", "tmp", "cur", ".Sent/new", ".Sent/tmp", "Archive/2024/new", ".notmaildir/new"):
        os.makedirs(os.path.join(root, folder), exist_ok=True)
    # Not a Maildir (no tmp/): everything but hidden things is walked.
    write(os.path.join(tmp, "plain", "cur", "9"), mail)
    os.symlink("..", os.path.join(root, "Archive", "up"))
    os.symlink(".", os.path.join(root, "Archive", "self"))
    os.mkfifo(os.path.join(root, "new", "fifo"))
    status, out, err = run("--json", "--summary", root, os.path.join(tmp, "plain"), timeout=30)
    got = [os.path.relpath(r["path"], root) for r in records(out)]
    check(status == 0 and got == sorted(taken) + ["../plain/cur/9"], "only the mail files: %s %s" % (got, err))
    check(", 1 skipped, " in err, "the FIFO is skipped and counted: " + err)


def case_jobs(tmp):
    for extra in ([], ["--problems"], ["--desktop"], ["--crlf"]):
        one, two, seven = (run("--json", "-j", jobs, *extra, *roots(), timeout=600)[1] for jobs in ("1", "2", "7"))
        check(len(one.splitlines()) > 5 and two == one and seven == one, "-j 2 and -j 7 equal -j 1 %s" % extra)
    check(run("-j", "0", EXAMPLES)[0] == 2 and run("-jx", EXAMPLES)[0] == 2, "bad job counts are usage errors")
    # A record larger than the printer holds at once (1 MiB), through one job and two.
    text = "".join('line "\0" %d\n' % i for i in range(300000))
    write(os.path.join(tmp, "big.eml"), b"Subject: big\n\n" + text.encode())
    for jobs in ("1", "2"):
        big = records(run("--json", "-j", jobs, *[os.path.join(tmp, "big.eml")] * 2)[1])
        check([r["text"] for r in big] == [text] * 2, "a 4 MB record with -j " + jobs)


MALFORMED = (b"From: a@example.org\nDate: Thu, 30 Apr 98 11:28:50 EDT\nSubject: =?utf-8?B?bm90IGJhc2U2NA?=\n"
             b"Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain; charset=x-nonsense\n\n"
             b"caf\xe9\n")


def case_problems(tmp):
    for extra in ([], ["--desktop"], ["--crlf"]):
        plain = records(run("--json", *extra, *roots(), timeout=600)[1])
        linted = records(run("--json", "--problems", *extra, *roots(), timeout=600)[1])
        differ = [a["path"] for a, b in zip(plain, linted) if a != {k: v for k, v in b.items() if k != "problems"}]
        check(len(plain) == len(linted) and not differ, "the same records with --problems %s: %s" % (extra, differ[:5]))
        check(all(isinstance(r["problems"], list) for r in linted), "every record has a list")
        if len(roots()) > 1:
            check(sum(1 for r in linted if r["problems"]) > 100, "the corpus has problems to report")
    # The desktop reading prints its parsers' records as they are, the full
    # reading each problem's text and context.
    for extra, key, line in ((["--desktop"], "description", "\n  problem: { "), ([], "text", "\n  problem: ")):
        # (A problem's JSON keys: cli_test's output.full_record; its priority: rfc822_date_test.)
        status, out, _ = run("--json", "--problems", *extra, "-", stdin=MALFORMED)
        texts = [p[key] for p in records(out)[0]["problems"]]
        check(status == 0 and any("closing MIME boundary" in t for t in texts), "unclosed multipart: %s" % texts)
        _, text, _ = run("--problems", *extra, "-", stdin=MALFORMED)
        check(text.decode().count(line) == len(texts), "one indented line per problem %s" % extra)


def case_progress(tmp):
    def on_terminal(*args):  # standard error on a pseudo-terminal, as text
        main, secondary = pty.openpty()
        p = subprocess.Popen([BINARY, *args], stdout=subprocess.DEVNULL, stderr=secondary)
        os.close(secondary)
        data = b""
        try:
            while chunk := os.read(main, 4096):
                data += chunk
        except OSError:  # EIO once the tool has closed its end
            pass
        p.wait(timeout=60)
        os.close(main)
        return data.decode(errors="replace")

    # Every example has text; html-only.eml and two others have no plain
    # text, which is all the desktop reading reads.
    shown = on_terminal(EXAMPLES)
    check("\r" in shown and " of 10 files, " in shown and " MB/s" in shown, "a progress line: %r" % shown)
    check("10 files, 10 imported, 10 with text, 0 unreadable, " in shown, "a summary on a terminal: %r" % shown)
    check("10 files, 10 imported, 7 with text, 0 unreadable, " in on_terminal("--desktop", EXAMPLES), "--desktop")
    check(on_terminal("--quiet", EXAMPLES) == "", "--quiet silences both")
    _, _, err = run("--json", EXAMPLES, "nope.eml")
    check("imported" not in err, "no summary when not a terminal")
    _, _, err = run("--json", "--summary", EXAMPLES, "nope.eml", cwd=tmp)
    check(err.splitlines()[-1].startswith("11 files, 10 imported, 10 with text, 1 unreadable, "), "--summary: " + err)


CREW = (b'From: Marta Kowalska <marta@example.com>\r\nTo: Bob Marsh <bob@example.org>, ann@example.com\r\n'
        b'Cc: "Lee, Carol" <carol@example.net>\r\nSubject: Crew rota\r\nDate: Tue, 7 Oct 2025 03:30:00 +0200\r\n'
        b'Content-Type: text/html; charset=utf-8\r\n\r\n<html><body><p>Shifts are <b>attached</b>.</p></body></html>\r\n')


def case_readings(tmp):
    # With no option, the listing is the full reading's: a CR LF file gives
    # the text of its HTML body and every recipient (the listing's layout is
    # cli_test's output.full_record).
    path = os.path.join(tmp, "crew.eml")
    write(path, CREW)
    status, out, _ = run(path)
    listing = out.decode()
    check(status == 0 and 'text        = "Shifts are attached.\\n"\n' in listing and "<ann@example.com>" in listing,
          "the listing: " + listing)
    # The JSON records of both readings are pinned by the golden digests over
    # the examples and the corpus; here, which options choose which: none or
    # --full the full reading, which reads CR LF anyway; --crlf alone the
    # desktop reading, as it always was.
    full, desktop = run("--json", "--full", path)[1], run("--json", "--desktop", "--crlf", path)[1]
    check(full.startswith(b'{"schema":1,') and run("--json", path)[1] == full
          and run("--json", "--full", "--crlf", path)[1] == full, "the full reading by default: %r" % full)
    check(b'"kMDItemSubject":"Crew rota"' in desktop and run("--json", "--crlf", path)[1] == desktop,
          "--crlf implies --desktop: %r" % desktop)


def case_run_examples(tmp):
    env = dict(os.environ, TIDEWELL_BUILD_DIR=os.path.dirname(os.path.dirname(os.path.dirname(BINARY))))
    p = subprocess.run([os.path.join(SOURCE, "scripts", "run-examples"), "--json"], env=env,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=600)
    check(p.returncode == 0, "run-examples succeeds: " + p.stderr.decode(errors="replace")[-2000:])
    check(len(records(p.stdout)) == len(os.listdir(EXAMPLES)), "one JSON record per example, nothing else")


def case_manual(tmp):
    """Every option of --help is in the manual page, and nothing else is."""
    _, usage, _ = run("--help")
    with open(os.path.join(SOURCE, "hosts", "cli", "tidewell-import.1"), encoding="utf-8") as f:
        page = f.read().replace("\\-", "-")
    pattern = re.compile(r"(?<![\w-])(--?[a-z][a-z-]*)")
    in_help, in_page = set(pattern.findall(usage.decode())), set(pattern.findall(page))
    check(len(in_help) > 10 and in_help == in_page, "options only in --help: %s, only in the page: %s"
          % (sorted(in_help - in_page), sorted(in_page - in_help)))


def main():
    global BINARY
    cases = {name[5:]: f for name, f in globals().items() if name.startswith("case_")}
    parser = argparse.ArgumentParser()
    parser.add_argument("--binary", required=True)
    parser.add_argument("case", choices=sorted(cases))
    options = parser.parse_args()
    BINARY = os.path.abspath(options.binary)
    with tempfile.TemporaryDirectory(prefix="tidewell-cli-") as tmp:
        cases[options.case](tmp)
    print("%s: %s" % (options.case, "%d failed" % len(failures) if failures else "ok"))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
