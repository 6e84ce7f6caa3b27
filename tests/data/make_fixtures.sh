#!/bin/sh
# Regenerates the BMP fixtures of this directory. Needs ImageMagick 6 (convert)
# and python3. The pixel values are those of the small PGM/PPM inputs below;
# the tests check against these values, not against the files.
set -eu
cd "$(dirname "$0")"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

printf 'P2\n7 3\n255\n0 12 24 36 48 60 72\n84 96 108 120 132 144 156\n168 180 192 204 216 228 255\n' > "$tmp/g.pgm"
printf 'P3\n3 2\n255\n255 0 0  0 255 0  0 0 255\n10 20 30  40 50 60  70 80 90\n' > "$tmp/c.ppm"
printf 'P3\n4 2\n255\n255 0 0  0 255 0  0 0 255  255 0 0\n0 0 255  0 0 255  0 255 0  255 0 0\n' > "$tmp/p.ppm"
python3 -c "
print('P3\n5 4\n255')
for i in range(20): print(i * 12, 255 - i * 12, (i * 37) % 256)
" > "$tmp/p20.ppm"

convert "$tmp/g.pgm" -type Palette -compress None BMP3:grey8.bmp      # 8-bit, 256-entry grey palette
convert "$tmp/g.pgm" -type Palette BMP3:grey8_rle.bmp                 # 8-bit, RLE8 (refused)
convert "$tmp/p.ppm" -type Palette -compress None BMP3:pal4.bmp       # 4-bit, 16-entry colour palette
convert "$tmp/p20.ppm" -type Palette -compress None BMP3:pal8.bmp     # 8-bit, colour palette
convert "$tmp/c.ppm" -type TrueColor BMP3:rgb24.bmp                   # 24-bit, 40-byte header
convert "$tmp/c.ppm" -type TrueColor BMP:rgb24_v5.bmp                 # 24-bit, 124-byte header

# Derived by rewriting headers (ImageMagick writes neither form):
python3 - <<'PY'
import struct
# Top-down: rows in picture order, negative height.
d = bytearray(open('rgb24.bmp', 'rb').read())
w, h = struct.unpack_from('<ii', d, 18)
off = struct.unpack_from('<I', d, 10)[0]
pitch = (w * 24 + 31) // 32 * 4
rows = [d[off + r * pitch: off + (r + 1) * pitch] for r in range(h)]
d[off:] = b''.join(reversed(rows))
struct.pack_into('<i', d, 22, -h)
open('rgb24_topdown.bmp', 'wb').write(d)
# Short palette: only the 20 entries in use, biClrUsed = 20.
d = open('pal8.bmp', 'rb').read()
off = struct.unpack_from('<I', d, 10)[0]
n = 20
out = bytearray(d[:54] + d[54:54 + 4 * n] + d[off:])
struct.pack_into('<I', out, 2, len(out))
struct.pack_into('<I', out, 10, 54 + 4 * n)
struct.pack_into('<I', out, 46, n)
struct.pack_into('<I', out, 50, n)
open('pal8_short.bmp', 'wb').write(out)
PY
