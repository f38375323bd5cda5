#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# End to end: Baloo's own file indexer (baloo_file, which runs
# baloo_file_extractor) indexes a folder of messages with the plugin built
# here (QT_PLUGIN_PATH), and baloosearch finds them by a word of the body, by
# the sender's address and name, and by a recipient's address. Without the
# plugin Baloo indexes these files by name only and finds none of them.
#
#   baloo_e2e.py EXAMPLES_DIR PLUGIN_PATH
#
# Everything runs in a temporary home, configuration (a baloofilerc naming
# the folder), data and runtime folder on a private session bus, in a process
# group of its own that is killed whole should it run past its time. Qt runs
# without a display (offscreen).
import ctypes, os, shutil, signal, subprocess, sys, tempfile, time

DEADLINE = 90  # seconds for the index to answer every probe
PROBES = (  # a baloosearch query, the file the answer must name
    ("harbour", "crlf-windows.eml"),
    ("ann.lee@example.com", "plain.eml"),
    ("Jürgen", "latin1-quoted-printable.eml"),
    ("facilities@example.org", "crlf-windows.eml"),
)


def inner():
    # PR_SET_PDEATHSIG: should this script be killed, so is the indexer.
    indexer = subprocess.Popen(["baloo_file"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                               preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGKILL))
    try:
        end, failures = time.monotonic() + DEADLINE, 0
        for query, expected in PROBES:
            while not (answer := subprocess.run(["baloosearch", query], capture_output=True, text=True,
                                                timeout=30).stdout).count("/" + expected) and time.monotonic() < end:
                time.sleep(0.5)
            if "/" + expected not in answer:
                print(f"FAIL {query}: {expected!r} not found within {DEADLINE} s; last answer:\n{answer}")
                failures += 1
        return 1 if failures else 0
    finally:
        indexer.terminate()
        try:
            indexer.wait(timeout=10)
        except subprocess.TimeoutExpired:
            indexer.kill()
            indexer.wait()


def outer(examples, plugin_path):
    with tempfile.TemporaryDirectory(prefix="tidewell-baloo-", ignore_cleanup_errors=True) as root:
        mail, config, runtime = (os.path.join(root, *parts) for parts in (("home", "Mail"), ("config",), ("runtime",)))
        for folder in (mail, config, runtime):
            os.makedirs(folder, mode=0o700)
        for name in ("plain.eml", "crlf-windows.eml", "latin1-quoted-printable.eml"):
            shutil.copy(os.path.join(examples, name), mail)
        with open(os.path.join(config, "baloofilerc"), "w") as rc:
            rc.write(f"[General]\nfolders[$e]={mail}/\nexclude folders[$e]=\nonly basic indexing=false\n"
                     "first run=false\n\n[Basic Settings]\nIndexing-Enabled=true\n")
        env = dict(os.environ, HOME=os.path.join(root, "home"), XDG_CONFIG_HOME=config,
                   XDG_DATA_HOME=os.path.join(root, "data"), XDG_CACHE_HOME=os.path.join(root, "cache"),
                   XDG_RUNTIME_DIR=runtime, QT_PLUGIN_PATH=plugin_path, QT_QPA_PLATFORM="offscreen")
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        session = subprocess.Popen(["dbus-run-session", "--", sys.executable, __file__, "inner"], env=env,
                                   stderr=subprocess.PIPE, text=True, start_new_session=True)
        try:
            errors = session.communicate(timeout=DEADLINE + 30)[1]
        except subprocess.TimeoutExpired:
            os.killpg(session.pid, signal.SIGKILL)
            print("FAIL: the session did not end in time")
            return 1
        print(errors if session.returncode else "", end="")
        return session.returncode


if __name__ == "__main__":
    sys.exit(inner() if sys.argv[1] == "inner" else outer(sys.argv[1], sys.argv[2]))
