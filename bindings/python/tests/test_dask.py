# SPDX-License-Identifier: MIT
"""tidewell.dask: the same records as parse_many on a laptop's threads and
through a real cluster (a dask scheduler and two dask worker processes on
127.0.0.1, all stopped at the end), also when a worker is killed while the
work is under way; and the dataframe's fixed columns and dtypes."""
import os
import signal
import socket
import subprocess
import sys
import time

import pytest

pytest.importorskip("dask.bag")
pytest.importorskip("distributed")

import distributed  # noqa: E402

import tidewell  # noqa: E402
import tidewell.dask  # noqa: E402
from conftest import EXAMPLES  # noqa: E402


def expected(corpus):
    return [m.to_dict() for m in tidewell.parse_many(tidewell.list_files(str(corpus)))]


def test_local_bag_and_dataframe(tmp_path):
    mbox = tmp_path / "box"
    mbox.write_bytes(b"".join(b"From a@example.com Thu Oct  2 14:03:09 2025\n" + p.read_bytes() + b"\n"
                              for p in sorted(EXAMPLES.glob("*.eml"))))
    bag = tidewell.dask.read_messages([str(EXAMPLES / "*.eml"), mbox], mbox=False, files_per_partition=3)
    assert bag.npartitions == 4
    assert bag.compute(scheduler="threads") == expected(EXAMPLES) + [tidewell.parse_file(mbox).to_dict()]
    boxed = tidewell.dask.read_messages(mbox, mbox=True).compute(scheduler="sync")
    assert boxed == [m.to_dict() for m in tidewell.iter_messages(mbox, mbox=True)] and len(boxed) == 10
    frame = tidewell.dask.to_dataframe(tidewell.dask.read_messages(EXAMPLES, files_per_partition=4))
    assert list(frame.columns) == list(tidewell.dask.META.columns)
    local = frame.compute(scheduler="sync")
    assert (local.dtypes == tidewell.dask.META.dtypes).all() and len(local) == 10
    row = local.set_index("path").loc[str(EXAMPLES / "plain.eml")]
    assert row["subject"] == "Agenda for Thursday's planning meeting" and row["from"][0]["address"]
    assert row["date_utc"].isoformat() == "2025-10-14T07:12:40+00:00" and row["message"] == 0
    assert tidewell.dask.read_messages(str(tmp_path / "none*")).compute() == []


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


@pytest.fixture
def cluster(tmp_path):
    """A scheduler and two single-threaded workers without nannies (a killed worker stays dead)."""
    port = free_port()
    address = f"tcp://127.0.0.1:{port}"
    dask = [sys.executable, "-m", "dask"]
    quiet = dict(stdout=subprocess.DEVNULL, stderr=open(tmp_path / "cluster.log", "w"))
    processes = [subprocess.Popen(dask + ["scheduler", "--host", "127.0.0.1", "--port", str(port),
                                          "--dashboard-address", "127.0.0.1:0"], **quiet)]
    try:
        for _ in range(2):
            processes.append(subprocess.Popen(dask + ["worker", address, "--host", "127.0.0.1", "--nthreads", "1",
                                                      "--no-nanny", "--no-dashboard"], **quiet))
        with distributed.Client(address, timeout=60) as client:
            client.wait_for_workers(2, timeout=120)
            yield client, processes[1:]
    finally:
        for process in processes:
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in processes:
            try:
                process.wait(timeout=20)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


def test_cluster_gives_the_records_of_parse_many(corpus, cluster):
    client, workers = cluster
    want = expected(corpus)
    bag = tidewell.dask.read_messages(corpus, files_per_partition=50)
    assert client.compute(bag).result() == want

    # Again in small partitions, one worker killed once some are done: Dask runs its lost work again.
    bag = tidewell.dask.read_messages(corpus, files_per_partition=4)
    persisted = client.persist(bag)
    futures = distributed.futures_of(persisted)
    deadline = time.monotonic() + 120
    while not any(f.done() for f in futures) and time.monotonic() < deadline:
        time.sleep(0.005)
    done_before = sum(f.done() for f in futures)
    workers[0].kill()
    workers[0].wait()
    got = client.compute(persisted).result()
    assert 0 < done_before < len(futures)
    assert got == want
    assert len(client.scheduler_info()["workers"]) == 1
