"""Batches of a clip for training, by PyTorch's DataLoader with two workers:

    training_batches.py clip.mp4
"""

import sys
from typing import Any

import torch
from torch.utils.data import DataLoader

import tarn_videoio as tv


class Pictures:
    """The pictures of a clip: what has a length and items is a dataset to PyTorch.

    The reader is made once; every worker opens a decoder of its own.
    """

    def __init__(self, path: str) -> None:
        self.reader = tv.VideoReader(path, size=(90, 160))

    def __len__(self) -> int:
        return len(self.reader)

    def __getitem__(self, number: int) -> Any:
        return torch.from_numpy(self.reader[number])


if __name__ == "__main__":
    pictures: Any = Pictures(sys.argv[1])
    for batch in DataLoader(pictures, batch_size=16, num_workers=2):
        print(tuple(batch.shape), float(batch.float().mean()))
