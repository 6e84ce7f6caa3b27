#!/usr/bin/env python3
"""Correcting a 16-bit dental X-ray with kevra, as one would in a notebook.

    python3 xray_chain.py [--in XRAY16.bmp] [--out corrected.bmp]

Without --in, a made-up 16-bit X-ray (a tooth-like shape, sensor noise and a few
dead pixels) is written to xray16.bmp first, then loaded like any other file.
Build the module first and put its directory on PYTHONPATH (see the README).
"""
import argparse

import numpy as np

import kevra

# %% Load the X-ray as an array: uint16, shape (height, width), top row first.
parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
parser.add_argument("--in", dest="source", help="16-bit grey BMP file (default: a made-up X-ray)")
parser.add_argument("--out", default="corrected.bmp", help="where to write the result")
args = parser.parse_args()

if args.source is None:
    rng = np.random.default_rng(1)
    y, x = np.mgrid[0:480, 0:640]
    tooth = np.exp(-(((x - 320) / 110.0) ** 4 + ((y - 260) / 190.0) ** 4))          # crown and root
    canal = np.exp(-(((x - 320) / 12.0) ** 2 + ((y - 330) / 120.0) ** 4))           # pulp canal
    signal = 9000 + 38000 * tooth - 12000 * canal + rng.normal(0, 900, x.shape)     # sensor noise
    signal.flat[rng.integers(0, signal.size, 400)] = 65535                           # dead pixels
    args.source = "xray16.bmp"
    kevra.write_bmp(args.source, np.clip(signal, 0, 65535).astype(np.uint16))

xray = kevra.read_bmp(args.source)
print(f"{args.source}: {xray.shape[1]} x {xray.shape[0]}, {xray.dtype}, levels {xray.min()} to {xray.max()}")

# %% The chain: the same steps and bytes as
#    kevra process in.bmp out.bmp --median 0.2,3 --unsharp 2,1.5 --gamma 0.8 --stretch 0.01,0.99
chain = kevra.Chain().median(0.2, 3).unsharp(2, 1.5).gamma(0.8).stretch(0.01, 0.99)
print("steps, in the order they run:", " ".join(chain.steps))
corrected = chain.run(xray)

# %% Look at the result, then write it.
counts = kevra.histogram(corrected)
print(f"corrected: levels {corrected.min()} to {corrected.max()}, median level {np.searchsorted(np.cumsum(counts), counts.sum() / 2)}")
kevra.write_bmp(args.out, corrected)
print("written:", args.out)
