# SPDX-License-Identifier: MIT
"""Where the tests find things: the source tree, the shared corpus beside the
checkout (tests that need it are skipped without it) and the built
tidewell-import (TIDEWELL_IMPORT, set by CTest). The module is imported from
PYTHONPATH: the build's assembled package, or an installed one."""
import os
from pathlib import Path

import pytest

SOURCE = Path(os.environ.get("TIDEWELL_SOURCE_DIR", Path(__file__).resolve().parents[3]))
CORPUS = SOURCE / ".." / "shared" / "corpus" / "messages"
EXAMPLES = SOURCE / "examples"


@pytest.fixture(scope="session")
def corpus():
    if not CORPUS.is_dir():
        pytest.skip("no shared corpus beside the checkout")
    return CORPUS.resolve()


@pytest.fixture(scope="session")
def cli():
    binary = os.environ.get("TIDEWELL_IMPORT")
    if not binary:
        pytest.skip("TIDEWELL_IMPORT does not name a tidewell-import")
    return binary
