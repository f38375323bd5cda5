# SPDX-License-Identifier: MIT
"""tidewell against the standard library's email (policy.default) over the
shared corpus: the subject, every address of From, To, Cc and Bcc, the Date,
the attachment names and the text. Where the two differ, a rule below must
accept the difference, with its reason; each rule is a predicate over the two
results, not a list of files, so that changes to the parsers move messages
between rules (or make them agree) without editing this file. The summary
printed at the end says how many differences each rule accepted.

    python3 -m pytest -s test_differential.py    (or run this file to list
    every difference by rule)
"""
import collections
import email
import email.policy
import re
import sys
import unicodedata
import warnings
from pathlib import Path

import pytest

import tidewell
from conftest import CORPUS


class Failed:
    """What the standard library raised instead of giving a value."""

    def __init__(self, error):
        self.error = error

    def __repr__(self):
        return f"<raised {type(self.error).__name__}>"


def attempt(get):
    try:
        return get()
    except Exception as error:  # noqa: BLE001 - any failure of the stdlib is a result here
        return Failed(error)


def squeeze(text):
    return " ".join(unicodedata.normalize("NFC", text).split()) if isinstance(text, str) else text


def words(text):
    return collections.Counter(re.findall(r"\w+", text.lower()))


def similarity(a, b):
    a, b = words(a), words(b)
    total = sum((a | b).values())
    return 1.0 if total == 0 else sum((a & b).values()) / total


def stdlib_fields(data):
    """The fields as the standard library gives them, each a value or Failed."""
    message = email.message_from_bytes(data, policy=email.policy.default)

    def header(name):
        value = message[name]
        return None if value is None else str(value)

    def addresses(name):
        found = []
        for value in message.get_all(name) or []:
            found.extend(a.username + ("@" + a.domain if a.domain else "") for a in value.addresses)
        return found

    def date():
        value = message["date"]
        return None if value is None else value.datetime

    def attachments():
        return [p.get_filename() for p in message.walk() if not p.is_multipart() and p.get_filename()]

    def text():
        body = message.get_body(("plain", "html"))
        return None if body is None else (body.get_content_type(), body.get_content())

    fields = {"subject": attempt(lambda: squeeze(header("subject")))}
    for name in ("from", "to", "cc", "bcc"):
        fields[name] = attempt(lambda: addresses(name))
    fields["date"] = attempt(date)
    fields["attachments"] = attempt(attachments)
    fields["text"] = attempt(text)
    return fields


def tidewell_fields(m):
    return {"subject": squeeze(m.subject), "from": [a.address for a in m.from_], "to": [a.address for a in m.to],
            "cc": [a.address for a in m.cc], "bcc": [a.address for a in m.bcc], "date": m.date,
            "attachments": [a.name for a in m.attachments], "text": m.text}


def same(field, ours, theirs):
    if field == "date":
        return ours == theirs and (ours is None or ours.utcoffset() == theirs.utcoffset())
    if field in ("from", "to", "cc", "bcc"):
        return [a.lower() for a in ours] == [a.lower() for a in theirs]
    if field == "text":
        if theirs is None:
            return ours is None or not ours.strip()
        kind, content = theirs
        if ours is None:
            return not content.strip()
        # HTML: the stdlib gives the markup, we give its text; compare the words of plain text only.
        return kind == "text/html" or similarity(ours, content) >= 0.9
    return ours == theirs


class Context:
    """What the rules may look at besides the two values: the raw header."""

    def __init__(self, data):
        self.data = data
        end = min((i for i in (data.find(b"\n\n"), data.find(b"\r\n\r\n")) if i >= 0), default=len(data))
        self.fields = collections.defaultdict(list)
        for line in re.sub(rb"\r?\n[ \t]", b" ", data[:end]).splitlines():
            name, colon, value = line.partition(b":")
            if colon and name.strip():
                self.fields[name.strip().lower().decode("latin-1")].append(value)

    def raw(self, field):
        return self.fields.get(field, [])

    def lone_cr(self):
        return self.data.count(b"\r") > self.data.count(b"\r\n") + 2


def empty(value):
    return value is None or value == [] or value == "" or (isinstance(value, tuple) and not value[1].strip())


def has_replacement(value):
    return "\ufffd" in repr(value) or "\\ufffd" in repr(value) or "\\udc" in repr(value)


def contained(small, large, share=0.9):
    if squeeze(small) in squeeze(large):
        return True
    small, large = words(small), words(large)
    total = sum(small.values())
    return total == 0 or sum((small & large).values()) >= share * total


ANY = ("subject", "from", "to", "cc", "bcc", "date", "attachments", "text")
ADDRESSES = ("from", "to", "cc", "bcc")

# (name, fields, reason, predicate(field, ours, theirs, context)). The first rule that accepts a difference
# takes it.
RULES = [
    ("stdlib raised", ANY,
     "Python's email raised on the field (its header parser's AttributeError or ValueError on malformed "
     "addresses, a LookupError for an unknown charset); the full reading repairs or accepts it",
     lambda f, o, t, c: isinstance(t, Failed)),
    ("lone CR line ends", ANY,
     "The message ends its lines with a lone CR: Python takes that for a line end, the full reading takes "
     "only LF and CR LF, so the header block is one long line to it",
     lambda f, o, t, c: c.lone_cr()),
    ("repeated field", ("subject", "date") + ADDRESSES,
     "The field is there more than once: Python lists every From/To/Cc and gives the first Subject/Date; "
     "the full reading takes one of each",
     lambda f, o, t, c: len(c.raw("from" if f == "from" else f)) > 1),
    ("mailbox listed once", ADDRESSES,
     "A mailbox repeated in one field is listed once by the full reading, every time by Python",
     lambda f, o, t, c: [a.lower() for a in o] == list(dict.fromkeys(a.lower() for a in t))),
    ("header block ends early", ANY,
     "One side finds no value at all: Python ends the header block at the first line that is not a field "
     "(a byte-order mark, a line without a colon, an indented first line) and reads no further, and the "
     "full reading skips what it cannot read as a field; either may be the one with the value",
     lambda f, o, t, c: f != "text" and (empty(o) != empty(t))),
    ("control characters", ("subject",),
     "A control character in the field (a NUL, a stray CR): the full reading drops it",
     lambda f, o, t, c: isinstance(o, str) and isinstance(t, str) and re.sub(r"[\x00-\x1f]", "", t) == o),
    ("8-bit header", ("subject",) + ADDRESSES + ("attachments",),
     "Raw 8-bit bytes in a header field (no encoded word): which charset they are in is a guess; the full "
     "reading tries UTF-8 and a detected charset, Python gives U+FFFD or surrogates for every such byte",
     lambda f, o, t, c: has_replacement(t) or any(re.search(rb"[\x80-\xff]", v)
                                                  for v in c.raw("subject" if f == "subject" else f))),
    ("encoded word one side cannot decode", ("subject", "attachments"),
     "An encoded word only one side decodes: Python leaves ISO-2022-JP words it cannot map and takes "
     "language-tagged words (=?utf-8*sl?) as text; the full reading does the opposite in places",
     lambda f, o, t, c: ("=?" in repr(o)) != ("=?" in repr(t))),
    ("unknown zone", ("date",),
     "No zone, -0000 or a zone name Python does not know: Python gives a naive datetime, the full reading "
     "the same local time at UTC or at the named zone's offset",
     lambda f, o, t, c: t is not None and o is not None and t.tzinfo is None
     and o.replace(tzinfo=None) == t),
    ("12-hour clock", ("date",),
     "The time is written with AM or PM: Python drops the marker (and a zone after it), the full reading "
     "moves the hour onto the 24-hour clock and reads the zone",
     lambda f, o, t, c: t is not None and o is not None and (o.minute, o.second) == (t.minute, t.second)
     and any(re.search(rb"\d:\d\d(:\d\d)?\s*[AaPp]\.?[Mm]\b", v) for v in c.raw("date"))),
    ("null or unreadable mailbox", ADDRESSES,
     "Python gives '<>' or an address without a domain for a mailbox it cannot read (an empty <>, "
     "MAILER-DAEMON, a route or a group it does not parse); the full reading gives what is written or nothing",
     lambda f, o, t, c: any(a == "<>" or "@" not in a for a in t + o)),
    ("display-name words taken for an address", ADDRESSES,
     "Words before an address written without angle brackets, or an address-like display name before a "
     "bracketed address ('a@x <b@y>'): Python joins the words into a quoted local part or takes the display "
     "name; the full reading takes the address itself",
     lambda f, o, t, c: any(" " in a.partition("@")[0] for a in t)
     or any(re.search(rb"@[^<,]*<", v) for v in c.raw(f))),
    ("obsolete address syntax", ADDRESSES,
     "Comments inside an address and source routes ('pete(his account)@silly.test', '@route:mary@x'): "
     "Python drops them, the full reading keeps the address as written",
     lambda f, o, t, c: any(ch in a for a in o for ch in "(:!")),
    ("charset name only Python knows", ("subject",),
     "An encoded word whose charset is named with an underscore (koi8_r): Python's codec lookup accepts "
     "it, the full reading's charset names do not, so it reads the bytes as Latin-1",
     lambda f, o, t, c: any(re.search(rb"=\?[\w-]*_[\w-]*\?", v) for v in c.raw(f))),
    ("mailboxes without a comma", ADDRESSES,
     "Two mailboxes without a comma between them are one item to the full reading, whose last address "
     "wins; Python takes the first",
     lambda f, o, t, c: len(o) == len(t) == 1 and sum(v.count(b"@") for v in c.raw(f)) > 1),
    ("header lines in Python's body", ("text",),
     "Python's header block ended early (at a line that is not a field: junk, a name with a space or a "
     "slash, a blank line holding a space), so its body starts with header lines; the full reading reads "
     "past them, and its text is all in Python's body",
     lambda f, o, t, c: isinstance(t, tuple) and isinstance(o, str) and contained(o, t[1])),
    ("text of every part", ("text",),
     "The full reading gives the text of every readable part, one after another (every part of a "
     "multipart/mixed, attached messages); get_body gives one part; that part's words are all there",
     lambda f, o, t, c: isinstance(t, tuple) and isinstance(o, str) and contained(t[1], o)),
    ("charset of a body", ("text",),
     "The same body read in another charset: Python decodes in the declared charset (U+FFFD for what does "
     "not fit, or a wrong declared one), the full reading checks the declaration and detects",
     lambda f, o, t, c: isinstance(t, tuple) and isinstance(o, str)
     and (has_replacement(t[1]) or contained(re.sub(r"[^\x00-\x7f]", " ", t[1]), o))),
    ("escapes Python leaves in", ("text",),
     "ISO-2022-JP text under no charset (us-ascii by default): Python shows its escape sequences, the full "
     "reading reads them as the Japanese they encode",
     lambda f, o, t, c: isinstance(t, tuple) and isinstance(o, str) and "\x1b$" in t[1] and "\x1b" not in o),
    ("body Python leaves encoded", ("text",),
     "Python gives the body still transfer-encoded (base64 with a stray character, an unknown "
     "Content-Transfer-Encoding); the full reading decodes what it can",
     lambda f, o, t, c: isinstance(t, tuple) and re.fullmatch(r"[A-Za-z0-9+/=\s]{12,}", t[1]) is not None),
    ("text part found by one side", ("text",),
     "Only one side finds a text part: Python's get_body skips message/rfc822 bodies and parts after a "
     "broken boundary; the full reading does not read a part as text when a multipart lacks its boundary "
     "or blank line the way Python's parser tolerates",
     lambda f, o, t, c: empty(o) != empty(t)),
    ("names Python does not take", ("attachments",),
     "The full reading lists parts Python's get_filename gives no name to (attached messages, names only "
     "in an RFC 2231 or encoded-word form Python does not decode, parts inside attached messages); every "
     "name Python gives is there",
     lambda f, o, t, c: not (collections.Counter(t) - collections.Counter(o))),
    ("names the full reading does not take", ("attachments",),
     "Python names a part the full reading does not list (a fragment of message/partial, a part after a "
     "broken boundary, a name folded across lines or cut at a space where it was not quoted)",
     lambda f, o, t, c: len(o) <= len(t)),
]


def compare(files, messages):
    """Per rule, the differences it accepted; and the differences no rule accepts."""
    accepted, failures = collections.defaultdict(list), []
    for path, m in zip(files, messages):
        data = Path(path).read_bytes()
        ours, theirs = tidewell_fields(m), attempt(lambda: stdlib_fields(data))
        if isinstance(theirs, Failed):
            theirs = dict.fromkeys(ours, theirs)
        context = Context(data)
        for field in ours:
            if not isinstance(theirs[field], Failed) and same(field, ours[field], theirs[field]):
                continue
            rule = next((r for r in RULES if field in r[1] and r[3](field, ours[field], theirs[field], context)),
                        None)
            if rule:
                accepted[rule[0]].append((path, field))
            else:
                failures.append((path, field, ours[field], theirs[field]))
    return accepted, failures


def run(corpus):
    sys.setrecursionlimit(20000)  # Python's address parser recurses per comment
    warnings.simplefilter("ignore")
    files = tidewell.list_files(str(corpus))
    return files, compare(files, tidewell.parse_many(files))


def test_differential_against_stdlib_email(corpus):
    files, (accepted, failures) = run(corpus)
    print(f"\n{len(files)} messages; accepted differences by rule:")
    for name, _, reason, _ in RULES:
        print(f"  {len(accepted[name]):5}  {name}")
    for path, field, ours, theirs in failures[:20]:
        print(f"NOT ACCEPTED {path} {field}: tidewell {ours!r:.150} / email {theirs!r:.150}")
    # A message where the two agree on every field is the rule; differences stay a minority.
    assert sum(map(len, accepted.values())) < len(files) * len(ANY) // 10
    assert not failures, f"{len(failures)} differences no rule accepts"


if __name__ == "__main__":
    files, (accepted, failures) = run(CORPUS)
    for name, _, reason, _ in RULES:
        print(f"== {name}: {len(accepted[name])}")
        for path, field in accepted[name]:
            print(f"   {field:12} {path}")
    for path, field, ours, theirs in failures:
        print(f"NOT ACCEPTED {field:12} {path}\n   tidewell {ours!r:.200}\n   email    {theirs!r:.200}")
