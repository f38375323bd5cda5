#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# End to end: Tracker's own file miner indexes a folder of messages with the
# module built here (TRACKER_EXTRACTORS_DIR, TRACKER_EXTRACTOR_RULES_DIR), and
# tracker3 finds them by a word of the body (plain or HTML), by the sender's
# address, by each recipient's address (one contact per mailbox of a list) and
# by the name of an attachment.
#
#   miner_e2e.py EXAMPLES_DIR
#
# Everything runs in a temporary home, cache and configuration (GSettings from
# a key file) on a private session bus, in a process group of its own that is
# killed whole should it run past its time. The miner refuses to index folders
# under the temporary directory, so TMPDIR points elsewhere for it.
import ctypes, os, shutil, signal, subprocess, sys, tempfile, time

DEADLINE = 90  # seconds for the index to answer every probe
SPARQL = ["sparql", "--dbus-service", "org.freedesktop.Tracker3.Miner.Files", "-q"]
SENDER = "SELECT ?f { ?m nco:creator/nco:hasEmailAddress/nco:emailAddress '%s' ; nie:isStoredAs ?f }"
RECIPIENT = "SELECT ?f { ?m nco:contributor/nco:hasEmailAddress/nco:emailAddress '%s' ; nie:isStoredAs ?f }"
CONTACTS = ("SELECT (COUNT(DISTINCT ?c) AS ?n) { ?m nie:isStoredAs ?f ; nco:contributor ?c . "
            "FILTER (STRENDS(STR(?f), '/several-recipients.eml')) FILTER NOT EXISTS { ?m nco:creator ?c } }")
ATTACHMENT = "SELECT ?f { ?m nie:hasPart/nfo:fileName '%s' ; nie:isStoredAs ?f }"
SEARCH = ["search", "--disable-color", "--disable-snippets"]
PROBES = (  # tracker3 arguments, a text the answer must hold
    (SEARCH + ["harbour"], "crlf-windows.eml"),
    (SPARQL + [SENDER % "ann.lee@example.com"], "plain.eml"),
    (SPARQL + [SENDER % "marta.kowalska@example.com"], "crlf-windows.eml"),
    # Three recipients in one To list: three contacts, each found by its address.
    (SPARQL + [RECIPIENT % "bob@example.org"], "several-recipients.eml"),
    (SPARQL + [RECIPIENT % "ann.lee@example.com"], "several-recipients.eml"),
    (SPARQL + [RECIPIENT % "joerg@example.de"], "several-recipients.eml"),
    (SPARQL + [CONTACTS], "4"),
    # "Gull" stands only in the HTML body of an html-only message.
    (SEARCH + ["Gull"], "html-only.eml"),
    (SPARQL + [ATTACHMENT % "invoice-2025-1042.pdf"], "mixed-attachment.eml"),
    (SPARQL + [ATTACHMENT % "Dy\u017cury listopad 2025.csv"], "several-recipients.eml"),
)
FILES = ("plain.eml", "crlf-windows.eml", "crlf-quoted-printable.eml", "several-recipients.eml", "html-only.eml",
         "mixed-attachment.eml")


def inner():
    # PR_SET_PDEATHSIG: should this script be killed, so is the miner.
    miner = subprocess.Popen(["/usr/libexec/tracker-miner-fs-3", "--initial-sleep=0"], stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGKILL))
    try:
        end, failures = time.monotonic() + DEADLINE, 0
        for arguments, expected in PROBES:
            while expected not in (answer := subprocess.run(["tracker3"] + arguments, capture_output=True, text=True,
                                                            timeout=30).stdout) and time.monotonic() < end:
                time.sleep(0.5)
            if expected not in answer:
                print(f"FAIL {arguments[-1]}: {expected!r} not found within {DEADLINE} s; last answer:\n{answer}")
                failures += 1
        return 1 if failures else 0
    finally:
        miner.kill()
        miner.wait()


def outer(examples):
    with tempfile.TemporaryDirectory(prefix="tidewell-tracker-", ignore_cleanup_errors=True) as root:
        mail, settings = os.path.join(root, "home", "Mail"), os.path.join(root, "config", "glib-2.0", "settings")
        for folder in (mail, settings, os.path.join(root, "tmp")):
            os.makedirs(folder)
        for name in FILES:
            shutil.copy(os.path.join(examples, name), mail)
        with open(os.path.join(settings, "keyfile"), "w") as keyfile:
            keyfile.write(f"[org/freedesktop/tracker/miner/files]\nindex-recursive-directories=['{mail}']\n"
                          "index-single-directories=@as []\nindex-applications=false\n")
        env = dict(os.environ, HOME=os.path.join(root, "home"), XDG_CACHE_HOME=os.path.join(root, "cache"),
                   XDG_CONFIG_HOME=os.path.join(root, "config"), XDG_DATA_HOME=os.path.join(root, "data"),
                   TMPDIR=os.path.join(root, "tmp"), GSETTINGS_BACKEND="keyfile")
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
    sys.exit(inner() if sys.argv[1] == "inner" else outer(sys.argv[1]))
