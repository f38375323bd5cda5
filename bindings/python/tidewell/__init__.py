# SPDX-License-Identifier: MIT
"""Tidewell: fast, tolerant e-mail message parsing.

One message in; its subject, every address of every address field, the sent
and received dates with the sender's zone, the thread identifiers, the
readable text and the attachments out, as a typed Message. Bad mail is
repaired or accepted, never rejected: only wrong argument types (TypeError)
and, for parse_file, a file that cannot be read (OSError) raise.

    >>> import tidewell
    >>> m = tidewell.parse(open("examples/plain.eml", "rb").read())
    >>> m.subject, m.from_[0].address, m.date.isoformat()

parse_many and iter_messages parse on native threads without the
interpreter lock and yield in input order; tidewell.dask reads archives
that outgrow one machine into a Dask bag or dataframe.
"""
from ._tidewell import (
    Address,
    Attachment,
    Message,
    MessageIterator,
    Problem,
    iter_messages,
    list_files,
    parse,
    parse_file,
    parse_many,
)

__all__ = ["Address", "Attachment", "Message", "MessageIterator", "Problem", "iter_messages", "list_files",
           "parse", "parse_file", "parse_many"]
__version__ = "0.1.0"
