# SPDX-License-Identifier: MIT
"""Mail archives as Dask collections, on a laptop's threads or a cluster.

read_messages lists the files on the client (the same walk as
tidewell-import), cuts the list into partitions of files_per_partition
files, and each task parses its files with tidewell.parse_many (or, for
mboxes, iter_messages) into to_dict() records. Nothing but paths travels to
the workers, so they must see the same files at the same paths: shared
storage (NFS, a cluster file system) or a copy at the same place.

    import tidewell.dask
    bag = tidewell.dask.read_messages(["/archive/**/*.eml"])
    bag.map(json.dumps).to_textfiles("/out/*.jsonl")
    tidewell.dask.to_dataframe(bag).to_parquet("/out/mail")  # with pyarrow
"""
import glob
import os

import dask
import dask.bag
import dask.dataframe
import pandas

from . import _tidewell

__all__ = ["read_messages", "to_dataframe", "META"]

# The columns of to_dataframe and their dtypes. Lists (addresses,
# references, attachments) stay Python objects; date_utc and received_utc are
# the dates in UTC as datetime64 (NaT when absent or out of pandas' range)
# beside date and received, which keep the sender's zone as RFC 3339 text.
_COLUMNS = {
    "path": "object", "message": "int64", "imported": "bool", "error": "object", "subject": "object",
    "from": "object", "sender": "object", "reply_to": "object", "to": "object", "cc": "object", "bcc": "object",
    "date": "object", "date_utc": "datetime64[ns, UTC]", "received": "object",
    "received_utc": "datetime64[ns, UTC]", "message_id": "object", "in_reply_to": "object",
    "references": "object", "text": "object", "attachments": "object", "cut": "bool",
}
META = pandas.DataFrame({name: pandas.Series(dtype=dtype) for name, dtype in _COLUMNS.items()})


def _expand(paths_or_globs):
    if isinstance(paths_or_globs, (str, os.PathLike)):
        paths_or_globs = [paths_or_globs]
    files = []
    for item in paths_or_globs:
        item = os.fspath(item)
        matches = sorted(glob.glob(item, recursive=True)) if glob.has_magic(item) else [item]
        for match in matches:
            files.extend(_tidewell.list_files(match))
    return files


def _read(chunks, mbox, reading, max_bytes):
    records = []
    for files in chunks:
        if mbox:
            for path in files:
                records.extend(m.to_dict() for m in _tidewell.iter_messages(path, mbox=True, jobs=1, reading=reading,
                                                                             max_bytes=max_bytes))
        else:
            records.extend(m.to_dict() for m in _tidewell.parse_many(files, jobs=1, reading=reading,
                                                                      max_bytes=max_bytes))
    return records


def read_messages(paths_or_globs, *, mbox=False, files_per_partition=256, reading="full", max_bytes=None):
    """A dask.bag.Bag of the to_dict() records of every message.

    paths_or_globs: a path or glob, or a list of them (``**`` matches any
    depth); a folder is walked as tidewell-import walks it. With mbox=True
    each file is an mbox and yields one record per message. The records come
    in the order of the files (globs sorted), one partition per
    files_per_partition files; each partition is parsed on one thread, so
    Dask's workers and threads set the parallelism.
    """
    if not isinstance(files_per_partition, int) or files_per_partition < 1:
        raise ValueError("files_per_partition must be a positive int")
    files = _expand(paths_or_globs)
    chunks = [files[i:i + files_per_partition] for i in range(0, len(files), files_per_partition)]
    if not chunks:
        return dask.bag.from_sequence([], npartitions=1)
    return dask.bag.from_sequence(chunks, partition_size=1).map_partitions(_read, mbox, reading, max_bytes)


def _utc(column):
    return pandas.to_datetime(column, utc=True, errors="coerce")


def _frame(records):
    frame = pandas.DataFrame.from_records(list(records), columns=[c for c in _COLUMNS if not c.endswith("_utc")])
    frame["message"] = frame["message"].fillna(0)
    frame["cut"] = frame["cut"].fillna(False)
    frame["date_utc"] = _utc(frame["date"])
    frame["received_utc"] = _utc(frame["received"])
    frame = frame[list(_COLUMNS)]
    frame = frame.astype({name: dtype for name, dtype in _COLUMNS.items() if not name.endswith("_utc")})
    return frame


def to_dataframe(bag):
    """A dask.dataframe of a bag of records, with META's columns and dtypes."""
    return dask.dataframe.from_delayed([dask.delayed(_frame)(part) for part in bag.to_delayed()], meta=META,
                                       verify_meta=False)
