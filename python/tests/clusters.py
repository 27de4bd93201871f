"""What the tests of Dask have in common: clusters on this machine, clips with known pictures."""

import os
from fractions import Fraction

import numpy as np
import pytest
from conftest import encode, make_pictures, within

dask = pytest.importorskip("dask", reason="Dask is not installed")
pytest.importorskip("dask.array", reason="what Dask's arrays need is not installed")
# Debian 11 has one that does not know the Python of later releases.
distributed = pytest.importorskip("distributed", "2022.1", "no clusters of Dask, or old ones")

LIMIT = 120  # seconds until a test that hangs is ended
HERE = {"host": "127.0.0.1", "protocol": "tcp://", "dashboard_address": "127.0.0.1:0",
        "worker_dashboard_address": "127.0.0.1:0"}


@pytest.fixture(autouse=True)
def limited():
    with within(LIMIT):
        yield


@pytest.fixture
def no_cluster():
    with pytest.raises(ValueError):
        distributed.get_client()


@pytest.fixture
def in_threads(tmp_path):
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=False,
                                  local_directory=str(tmp_path), **HERE) as cluster, \
            distributed.Client(cluster) as client:
        yield client


@pytest.fixture
def in_processes(tmp_path):
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  local_directory=str(tmp_path), **HERE) as cluster, \
            distributed.Client(cluster) as client:
        yield client


@pytest.fixture(scope="module")
def clips(tmp_path_factory):
    """Five clips of different lengths, with their pictures."""
    folder = tmp_path_factory.mktemp("many")
    made = []
    for seed, count in enumerate((17, 60, 1, 33, 24), 20):
        pictures = make_pictures(count, seed=seed)
        made.append((encode(folder / f"{seed}.mp4", pictures), pictures))
    return made


def told(batch):
    """A function that says of a part what it is, and a sum that depends on every pixel."""
    weights = np.arange(1, batch.data[0].size + 1, dtype=np.int64)
    sums = batch.data.reshape(len(batch), -1).astype(np.int64) @ weights
    return batch.numbers.tolist(), sums.tolist(), batch.times, os.getpid()


def sums_of(pictures):
    weights = np.arange(1, pictures[0].size + 1, dtype=np.int64)
    return (pictures.reshape(len(pictures), -1).astype(np.int64) @ weights).tolist()


def check(results, pictures):
    """All frames once, in order, and each the right one."""
    assert [n for numbers, _, _, _ in results for n in numbers] == list(range(len(pictures)))
    assert [s for _, sums, _, _ in results for s in sums] == sums_of(pictures)
    assert [t for _, _, times, _ in results for t in times] == [
        Fraction(n, 25) for n in range(len(pictures))]
