#!/usr/bin/env python3
"""Regenerates the CRC-32 goldens of Lut.ToneFormulaExhaustive (tests/lut/test_lut_tables.cpp).

The tone table is computed here on its own, from the rule stated in the library
(src/lut/detail/table_kernels.h), with single-precision steps emulated by rounding every
double result to float32 (exact for +, *, / of float32 operands):
    x = float(i) / D                         D = float(N) - 1, S = float(N - 1)
    p = float(pow(double(x), double(gamma)))
    v = ((p * contrast) + brightness) * S    each step rounded to float32
    v = 0 when min(v, S) is not above 0 (NaN included), S when v is not below S
    entry = v truncated toward zero
and each table (N = 256 bytes, N = 65536 little-endian 16-bit entries) is reduced to its
CRC-32 (zlib polynomial). Run: python3 tests/support/generate_tone_crcs.py
"""
import math
import struct
import zlib

CASES = [(0.5, 1.0, 1.0), (0.0, 2.0, 1.0), (0.0, 1.0, 0.5), (0.0, 1.0, 2.2), (0.1, 1.5, 0.8), (-0.2, 1.3, 1.7)]


def f32(v):
    return struct.unpack("<f", struct.pack("<f", v))[0]


def table(n, lum, con, gam):
    lum, con, gam = f32(lum), f32(con), f32(gam)
    d = f32(float(n) - 1.0)
    s = f32(float(n - 1))
    out = []
    for i in range(n):
        x = f32(f32(float(i)) / d)
        try:
            p = f32(math.pow(x, gam))
        except (ValueError, ZeroDivisionError, OverflowError):
            p = math.inf if x == 0.0 else math.nan
        v = f32(f32(f32(p * con) + lum) * s)
        smaller = s if s < v else v
        if not smaller > 0.0:
            v = 0.0
        elif not v < s:
            v = s
        out.append(int(v))
    return bytes(out) if n == 256 else struct.pack("<%dH" % n, *out)


for lum, con, gam in CASES:
    c8 = zlib.crc32(table(256, lum, con, gam))
    c16 = zlib.crc32(table(65536, lum, con, gam))
    print("        {%sf, %sf, %sf, 0x%08xu, 0x%08xu}," % (lum, con, gam, c8, c16))
