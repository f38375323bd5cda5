# SPDX-License-Identifier: MIT
"""Runs a desktop indexer end to end on a private session bus.

The Tracker and Baloo tests index a few examples in a temporary home,
configuration, cache, data and runtime folder, on a session bus of their
own, in a process group killed whole should it run past its time; then they
ask the index until every probe's answer holds the expected text.
"""
import ctypes, os, shutil, signal, subprocess, sys, tempfile, time

DEADLINE = 90  # seconds for the index to answer every probe


def outer(script, examples, files, configure):
    """Copies files into ~/Mail; configure(root, mail) returns more environment."""
    with tempfile.TemporaryDirectory(prefix="tidewell-e2e-", ignore_cleanup_errors=True) as root:
        folder = lambda *parts: os.path.join(root, *parts)
        for path in (folder("home", "Mail"), folder("config"), folder("runtime")):
            os.makedirs(path, mode=0o700)
        for name in files:
            shutil.copy(os.path.join(examples, name), folder("home", "Mail"))
        env = dict(os.environ, HOME=folder("home"), XDG_CONFIG_HOME=folder("config"), XDG_DATA_HOME=folder("data"),
                   XDG_CACHE_HOME=folder("cache"), XDG_RUNTIME_DIR=folder("runtime"))
        env.update(configure(root, folder("home", "Mail")))
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        session = subprocess.Popen(["dbus-run-session", "--", sys.executable, script, "inner"], env=env,
                                   stderr=subprocess.PIPE, text=True, start_new_session=True)
        try:
            errors = session.communicate(timeout=DEADLINE + 30)[1]
        except subprocess.TimeoutExpired:
            os.killpg(session.pid, signal.SIGKILL)
            print("FAIL: the session did not end in time")
            return 1
        print(errors if session.returncode else "", end="")
        return session.returncode


def inner(indexer, probes):
    """Starts the indexer, then runs each probe's command until its answer holds the expected text."""
    # PR_SET_PDEATHSIG: should this script be killed, so is the indexer.
    daemon = subprocess.Popen(indexer, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGKILL))
    try:
        end, failures = time.monotonic() + DEADLINE, 0
        for command, expected in probes:
            while expected not in (answer := subprocess.run(command, capture_output=True, text=True,
                                                            timeout=30).stdout) and time.monotonic() < end:
                time.sleep(0.5)
            if expected not in answer:
                print(f"FAIL {command[-1]}: {expected!r} not found within {DEADLINE} s; last answer:\n{answer}")
                failures += 1
        return 1 if failures else 0
    finally:
        daemon.terminate()
        try:
            daemon.wait(timeout=10)
        except subprocess.TimeoutExpired:
            daemon.kill()
            daemon.wait()
