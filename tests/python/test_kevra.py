"""Tests of the kevra Python module: results equal to the kevra command line's on the same
input (byte for byte, each family, each depth), or to an equivalent already checked, round
trips, refusals. Run by ctest (see CMakeLists.txt for the environment)."""
import os
import subprocess
import sys
import threading
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import kevra

CLI = os.environ.get("KEVRA_CLI")
DATA = os.path.join(os.path.dirname(__file__), "..", "data")
needs_cli = pytest.mark.skipif(not CLI, reason="the kevra command line is not built")


def sample(bits, w=37, h=23, seed=7):
    """A smooth picture with noise and outliers (odd width: padded rows)."""
    rng = np.random.default_rng(seed + bits)
    y, x = np.mgrid[0:h, 0:w]
    top = 65535 if bits == 16 else 255
    base = (x * 0.6 + y * 0.4) / (w * 0.6 + h * 0.4) * top * 0.8
    if bits == 24:
        base = np.stack([base, base[::-1] * 0.7, base[:, ::-1] * 0.9], axis=2)
    noisy = base + rng.normal(0, top * 0.03, base.shape)
    noisy.flat[rng.integers(0, noisy.size, noisy.size // 20)] = top
    return np.clip(noisy, 0, top).astype(np.uint16 if bits == 16 else np.uint8)


def as_bgr(a):
    return a if a.ndim == 2 else a[:, :, ::-1]


def run(args):
    p = subprocess.run(args, capture_output=True, text=True)
    assert p.returncode == 0, p.stderr
    return p.stdout


def cli_process(tmp_path, a, options, zone=None):
    """The command line's result for a (colour as R, G, B), read back as B, G, R."""
    src, dst = str(tmp_path / "in.bmp"), str(tmp_path / "out.bmp")
    kevra.write_bmp(src, a, channels="rgb" if a.ndim == 3 else None)
    zoned = ["--zone", ",".join(map(str, zone))] if zone else []
    run([CLI, "process", src, dst] + zoned + options.split())
    return kevra.read_bmp(dst, channels="bgr" if a.ndim == 3 else None)


# ---- arrays, files, round trips --------------------------------------------------

# The files of another tool tell read_bmp's row and channel order; the round trips then tell
# write_bmp's.
def test_fixtures_read_top_row_first_in_the_chosen_channel_order():
    rgb = [[[255, 0, 0], [0, 255, 0], [0, 0, 255]], [[10, 20, 30], [40, 50, 60], [70, 80, 90]]]
    for name in ("rgb24.bmp", "rgb24_topdown.bmp"):
        assert kevra.read_bmp(os.path.join(DATA, name), channels="rgb").tolist() == rgb
        assert kevra.read_bmp(os.path.join(DATA, name), channels="bgr").tolist() == [
            [p[::-1] for p in row] for row in rgb]
    # An 8-bit file gives its palette indices (this file's palette lists its levels in picture order).
    grey = kevra.read_bmp(os.path.join(DATA, "grey8.bmp"))
    assert grey.dtype == np.uint8 and grey.tolist() == np.arange(21).reshape(3, 7).tolist()


@pytest.mark.parametrize("bits", [8, 16, 24])
@pytest.mark.parametrize("shape", [(23, 37), (1, 1), (1, 5), (6, 1)])
def test_round_trips(tmp_path, bits, shape):
    a = sample(bits, w=shape[1], h=shape[0])
    ch = "rgb" if bits == 24 else None
    for v in (a, a[::-1, ::2], np.asfortranarray(a)):  # strided and Fortran-ordered views as they are
        assert np.array_equal(kevra.Dib(v, channels=ch).to_array(channels=ch), v)
    if bits == 24:
        assert np.array_equal(kevra.Dib(a, channels="rgb").to_array(channels="bgr"), a[:, :, ::-1])
    path = str(tmp_path / "x.bmp")
    kevra.write_bmp(path, a, channels=ch)
    assert np.array_equal(kevra.read_bmp(path, channels=ch), a)
    d = kevra.Dib.read(path)
    assert (d.width, d.height, d.bits, d.zone) == (shape[1], shape[0], bits, (0, 0, shape[1] - 1, shape[0] - 1))


def test_dib_zone_and_depth_conversion():
    a, b = sample(16), sample(8)
    d = kevra.Dib(a)
    d.zone = (50, 40, -10, 5)
    assert d.zone == (0, 5, 36, 22)
    # 16 to 8 bits keeps the high byte, 8 to 16 multiplies by 256.
    for src, bits, expected in ((a, 8, (a >> 8).astype(np.uint8)),
                                (b, 16, b.astype(np.uint16) << 8)):
        assert np.array_equal(kevra.convert(src, bits), expected)
        assert np.array_equal(kevra.Dib(src).copy_to_bits(bits).to_array(), expected)


# ---- each family against the command line (the sequencer runs the same members) --

ZONE = (3, 2, 30, 19)
# (function call, command-line options (split at spaces), depths, takes a zone)
AGAINST_CLI = [
    (lambda a, **k: kevra.negative(a, **k), "--negative", (8, 16, 24), True),
    (lambda a, **k: kevra.mirror_horizontal(a, **k), "--mirror-horizontal", (8, 16, 24), True),
    (lambda a, **k: kevra.mirror_vertical(a, **k), "--mirror-vertical", (8, 16, 24), True),
    (lambda a, **k: kevra.rotate(a, 90, **k), "--rotate 90", (8, 16, 24), False),
    (lambda a, **k: kevra.rotate(a, 270, **k), "--rotate 270", (24,), False),
    (lambda a, **k: kevra.stretch(a, 0.05, 0.9, **k), "--stretch 0.05,0.9", (8, 16, 24), True),
    (lambda a, **k: kevra.resample(a, 20, 31, **k), "--resample 20x31", (8, 16, 24), False),
    (lambda a, **k: kevra.resample(a, 11, 7, 2, **k), "--resample 11x7,2", (8, 16, 24), False),
    (lambda a, **k: kevra.median(a, 0.1, 3, **k), "--median 0.1,3", (8, 16, 24), True),
    (lambda a, **k: kevra.unsharp(a, 2.5, 1.5, 0.8, 2, **k), "--unsharp 2.5,1.5,0.8,2", (8, 16, 24), True),
    (lambda a, **k: kevra.unsharp_disc(a, 17, 9, 8, 2, 2.0, **k), "--unsharp-disc 17,9,8,2,2", (8, 16, 24), False),
    (lambda a, **k: kevra.filter(a, "gaussian", 5, 1.3, **k), "--filter gaussian,5,1.3", (8, 16, 24), True),
    (lambda a, **k: kevra.filter(a, "sinc", 7, 2, **k), "--filter sinc,7,2", (8, 24), True),
    (lambda a, **k: kevra.filter(a, 6, **k), "--filter laplacian", (8, 16, 24), True),
    (lambda a, **k: kevra.Filter("gradient-diagonal").apply(a, offset=32768.5 if a.dtype == np.uint16 else 128.5, **k),
     "--filter gradient-diagonal", (8, 16, 24), True),
    (lambda a, **k: kevra.tone(a, 0.05, 1.2, 0.8, **k),
     "--brightness 0.05 --contrast 1.2 --gamma 0.8", (8, 16, 24), True),
    (lambda a, **k: kevra.saturation(a, 150, **k), "--saturation 150", (24,), True),
    (lambda a, **k: kevra.hue(a, 60, **k), "--hue 60", (24,), True),
    (lambda a, **k: kevra.whiten(a, 120, **k), "--whiten 120", (24,), True),
    (lambda a, **k: kevra.black_white(a, **k), "--black-white", (24,), True),
    (lambda a, **k: kevra.palette(a, "false-colour-1", **k), "--lut-palette 21", (24,), True),
    (lambda a, **k: kevra.levels(a, 20, -30, 5, **k), "--red 20 --green=-30 --blue 5", (24,), True),
]


def by_depth(table, name):
    """One case per depth an entry applies to, named after the entry."""
    return [pytest.param(bits, *entry[:2], *entry[3:], id=f"{bits}-{name(entry)}") for entry in table for bits in entry[2]]


def expect_equal_results(bits, call, zones, expected):
    """call on a sample, without and with each zone, against expected(array, zone) as B, G, R."""
    a = sample(bits)
    kw = {"channels": "rgb"} if bits == 24 else {}
    for zone in zones:
        got = call(a, zone=zone, **kw) if zone else call(a, **kw)
        assert got.dtype == a.dtype and np.array_equal(as_bgr(got), expected(a, zone)), zone


@needs_cli
@pytest.mark.parametrize("bits,call,options,zoned", by_depth(AGAINST_CLI, lambda e: e[1]))
def test_operation_equals_command_line(tmp_path, bits, call, options, zoned):
    zones = (None, ZONE) if zoned else (None,)
    expect_equal_results(bits, call, zones, lambda a, z: cli_process(tmp_path, a, options, z))


CHAINS = [
    (8, "--mirror-horizontal --median 0.2,3 --unsharp 2,1.5 --gamma 0.8 --stretch 0.01,0.99"),
    (16, "--rotate 90 --median 0.05,4 --filter mean,3 --unsharp radius=3,gain+=2,gain-=1 "
         "--resample 30x40,1 --negative --brightness 0.1 --stretch 0.02,0.98"),
    (24, "--mirror-vertical --unsharp-disc 10,10,6,2,1.5 --black-white --saturation 120 --hue 90 "
         "--whiten 110 --lut-palette blue --contrast 1.1 --red 10"),
]


@needs_cli
@pytest.mark.parametrize("bits,options", CHAINS)
@pytest.mark.parametrize("zone", [None, ZONE])
def test_chain_gives_the_command_lines_bytes(tmp_path, bits, options, zone):
    a = sample(bits)
    ch = "bgr" if bits == 24 else None
    got = kevra.Chain.from_options(options.split()).run(a, zone=zone, channels=ch)
    assert np.array_equal(got, cli_process(tmp_path, a[..., ::-1] if bits == 24 else a, options, zone))


def test_chain_methods_build_the_options_steps():
    c = kevra.Chain().gamma(0.8).unsharp(2, 1.5).median(0.2, 3).rotate(180).red(-5).lut_palette(23)
    assert c.steps == ["--rotate 180", "--median 0.2,3", "--unsharp 2,1.5,1.5,0,0", "--lut-palette 23",
                       "--gamma 0.8", "--red -5"]
    a = sample(24)
    assert np.array_equal(c.run(a, channels="rgb"), kevra.Chain.from_options(
        ["--gamma=0.8", "--unsharp", "2,1.5", "--median", "0.2,3", "--rotate", "180", "--red=-5",
         "--lut-palette", "23"]).run(a, channels="rgb"))


# ---- members outside the sequencer, against the C++ library ---------------------

@pytest.mark.parametrize("bits", [8, 16, 24])
def test_user_kernels_and_two_kind_filters(bits):
    a, kw = sample(bits), {"channels": "rgb"} if bits == 24 else {}
    corner = np.zeros((3, 3), np.float32)
    corner[2, 0] = 1  # top row first: each pixel takes its lower left neighbour
    moved = a[2:, :-2].astype(np.float64)
    plain = kevra.Filter.kernel(corner).apply(a, **kw)
    scaled = kevra.Filter.kernel(corner).apply(a, offset=20, factor=0.5, **kw)
    assert np.array_equal(plain[1:-1, 1:-1], moved)
    assert np.array_equal(scaled[1:-1, 1:-1], (moved * 0.5 + 20).astype(a.dtype))
    two = kevra.Filter.separable("gaussian", 5, "sinc", 3, 1.5, 2)
    assert two.table_x.tolist() == kevra.Filter("gaussian", 5, 1.5).table_x.tolist()
    assert two.table_y.tolist() == kevra.Filter("sinc", 3, 2).table_x.tolist()


def in_zone(a, zone, values):
    """a with the zone (inclusive, top row first) given values(zone's samples)."""
    out = a.copy()
    left, top, right, bottom = zone or (0, 0, a.shape[1] - 1, a.shape[0] - 1)
    out[top:bottom + 1, left:right + 1] = values(a[top:bottom + 1, left:right + 1])
    return out


def tone_table(a):
    lut = kevra.CLUT_24_Bpp() if a.ndim == 3 else kevra.CLUT_16_Bpp() if a.dtype == np.uint16 else kevra.CLUT_8_Bpp()
    lut.SetLuminositeConstrateGamma(0.05, 1.2, 0.9)
    if a.ndim == 3:
        lut.ReglageRouge(30)
    return lut


def looked_up(lut, a):
    """numpy's own indexing of an R, G, B array."""
    if a.ndim == 2:
        return lut.table[a]
    return np.stack([lut.red[a[..., 0]], lut.green[a[..., 1]], lut.blue[a[..., 2]]], 2)


def filled(value):
    return lambda a, z, k: in_zone(a, z, lambda p: value)


def same_as(member, *args):
    return lambda a, z, k: member(a, *args, zone=z, **k)


# Members whose results follow from a member already checked against the command line, or
# from numpy: (function call, expected(array, zone, keywords) as R, G, B, depths).
SAME_AS = [
    (lambda a, **k: kevra.fill(a, 200, **k), filled(200), (8,)),
    (lambda a, **k: kevra.fill(a, 40000, **k), filled(40000), (16,)),
    (lambda a, **k: kevra.fill(a, (10, 20, 30), **k), filled((10, 20, 30)), (24,)),
    # Brightness, contrast and gamma alone are the tone adjustment with the other two neutral.
    (lambda a, **k: kevra.brightness(a, 0.1, **k), same_as(kevra.tone, 0.1), (8, 16, 24)),
    (lambda a, **k: kevra.contrast(a, 1.3, **k), same_as(kevra.tone, 0, 1.3), (8, 16, 24)),
    (lambda a, **k: kevra.gamma(a, 0.7, **k), same_as(kevra.tone, 0, 1, 0.7), (8, 16, 24)),
    # Teeth whitening is the luminance scaling.
    (lambda a, **k: kevra.luminance(a, 80, **k), same_as(kevra.whiten, 80), (24,)),
    (lambda a, **k: tone_table(a).apply(a, **k),
     lambda a, z, k: in_zone(a, z, lambda p: looked_up(tone_table(a), p)), (8, 16, 24)),
]


@pytest.mark.parametrize("bits,call,expected", by_depth(SAME_AS, lambda e: str(SAME_AS.index(e))))
def test_operation_equals_its_equivalent(bits, call, expected):
    kw = {"channels": "rgb"} if bits == 24 else {}
    expect_equal_results(bits, call, (None, ZONE), lambda a, z: as_bgr(expected(a, z, kw)))


@pytest.mark.parametrize("bits", [8, 16, 24])
def test_histograms_count_the_zone(bits):
    a = sample(bits)
    ch = "bgr" if bits == 24 else None
    z = a[2:10, 1:21].reshape(160, -1).astype(np.int64)
    n = 65536 if bits == 16 else 256
    counts = np.array([np.bincount(z[:, c], minlength=n) for c in range(z.shape[1])])
    got = kevra.histogram(a, zone=(1, 2, 20, 9), channels=ch)
    assert np.array_equal(got, counts if bits == 24 else counts[0])
    if bits == 24:
        # One row per channel of the array, whichever order it is said to be in.
        assert np.array_equal(kevra.histogram(a, zone=(1, 2, 20, 9), channels="rgb"), got)
        # 0.587 g + 0.299 r + 0.114 b in double, truncated; the first byte counts as red.
        b = a.astype(np.float64)
        lum = (0.587 * b[..., 1] + 0.299 * b[..., 0] + 0.114 * b[..., 2]).astype(np.int64)
        expected = np.bincount(lum.ravel(), minlength=256)
        assert np.array_equal(kevra.luminance_histogram(a, channels="bgr"), expected)


@pytest.mark.parametrize("settings", [(0, 1, 1, 0, 0, 0, 0, 0), (0.1, 1.2, 0.8, 21, 10, -20, 5, 1),
                                      (0, 1, 1, 12, 0, 0, 0, 0)])
def test_display_palette_composes_the_tables(settings):
    l, c, g, p, r, gr, b, n = settings
    expected, levels = kevra.CLUT_24_Bpp(), kevra.CLUT_24_Bpp()
    expected.SetLuminositeConstrateGamma(l, c, g)
    levels.ReglageRougeVertBleu(r, gr, b)
    expected.Combiner(levels)
    for then in [12] * n + [p] * (p != 0):  # the negative, then the palette
        expected.Combiner(kevra.CLUT_24_Bpp(then))
    got = kevra.display_palette(brightness=l, contrast=c, gamma=g, palette=p, red=r, green=gr,
                                blue=b, negative=bool(n))
    assert got.tolist() == np.stack([expected.red, expected.green, expected.blue], 1).tolist()


def test_tables_are_views_and_filters_report_their_tables():
    lut = kevra.CLUT_8_Bpp()
    assert lut.IsLinear45()
    lut.table[:] = 255 - np.arange(256)
    assert np.array_equal(lut.apply(sample(8)), 255 - sample(8))
    assert kevra.CLUT_16_Bpp(np.arange(65536, dtype=np.uint16)[::-1].copy()).table[0] == 65535
    assert kevra.CLUT_24_Bpp(12).red[0] == 255
    mean = kevra.Filter("mean", 5)
    assert mean.IsOK() and mean.table_x.tolist() == mean.table_y.tolist() and mean.table_x.size == 3
    assert kevra.Filter.kernel(np.ones((3, 3))).table_x.size == 0


# ---- refusals: the command line's ranges and messages, the library's reasons ------

BAD_OPTIONS = ["--median 2,3", "--gamma 0", "--rotate 45", "--filter blur", "--resample 0x10",
               "--saturation=-1", "--unsharp-disc 50,2,3,2,1.5", "--stretch 0.9,0.1"]


@needs_cli
@pytest.mark.parametrize("options", BAD_OPTIONS)
def test_refusals_have_the_command_lines_messages(tmp_path, options):
    a, options = sample(24), options.split()
    src = tmp_path / "in.bmp"
    kevra.write_bmp(str(src), a, channels="rgb")
    p = subprocess.run([CLI, "process", str(src), str(tmp_path / "o.bmp")] + options, capture_output=True, text=True)
    assert p.returncode == 2 and p.stderr.startswith("kevra: ")
    with pytest.raises(ValueError) as e:
        kevra.Chain.from_options(options).run(a, channels="rgb")
    assert str(e.value) == p.stderr.strip().split("\n")[0][len("kevra: "):]


@pytest.mark.parametrize("call,error,message", [
    (lambda: kevra.negative(sample(24)), ValueError, "channels='rgb' or channels='bgr'"),
    (lambda: kevra.negative(sample(24), channels="rbg"), ValueError, "channels must be 'rgb' or 'bgr', not 'rbg'"),
    (lambda: kevra.negative(np.zeros((3, 3))), TypeError, "not float64 (3, 3)"),
    (lambda: kevra.negative(np.zeros((3, 3, 4), np.uint8)), TypeError, "not uint8 (3, 3, 4)"),
    (lambda: kevra.negative(np.zeros((3, 3), ">u2")), TypeError, "not >u2 (3, 3)"),
    (lambda: kevra.fill(sample(8), 256), ValueError, "fill: the value must be a level from 0 to 255"),
    (lambda: kevra.negative(np.zeros((0, 3), np.uint8)), ValueError, "at least one row"),
    (lambda: kevra.negative(sample(8), zone=(0, 0, 40, 3)), ValueError, "--zone 0,0,40,3: the zone must lie within"),
    (lambda: kevra.saturation(sample(8), 50), ValueError, "--saturation 50 needs a 24-bit colour image (this one is 8-bit)"),
    (lambda: kevra.Chain().negative().run(sample(16), zone=(3, 3, 3, 9)), ValueError, "0 <= LEFT < RIGHT"),
    (lambda: kevra.Chain().run(sample(8)), ValueError, "no step given"),
    (lambda: kevra.Chain().negative().negative(), ValueError, "--negative: given twice"),
    (lambda: kevra.CLUT_8_Bpp().apply(sample(16)), kevra.Error, "a 8-bit table does not apply to a 16-bit image"),
    (lambda: kevra.Filter.kernel(np.ones((2, 3))), ValueError, "odd height and odd width"),
    (lambda: kevra.read_bmp("/nonexistent/x.bmp"), kevra.Error, "/nonexistent/x.bmp: cannot read"),
    (lambda: kevra.read_bmp(os.path.join(DATA, "grey8_rle.bmp")), kevra.Error, "grey8_rle.bmp: cannot read: "),
    (lambda: kevra.Dib.read(os.path.join(DATA, "pal4.bmp")).to_array(), ValueError, "this one is 4-bit"),
    (lambda: kevra.convert(sample(24), 8), ValueError, "channels="),
])
def test_refusals(call, error, message):
    with pytest.raises(error) as e:
        call()
    assert message in str(e.value)


def test_a_refused_chain_step_leaves_the_chain_as_it_was_and_skipped_steps_warn():
    c = kevra.Chain().negative()
    with pytest.raises(ValueError):
        c.gamma(-1)
    assert c.steps == ["--negative"]
    # A step that does nothing at the image's depth is named in a warning.
    with pytest.warns(UserWarning, match="--red 10 has no effect on a 8-bit image"):
        kevra.Chain().red(10).negative().run(sample(8))


# ---- threads, documentation, the example -------------------------------------------

def test_threads_run_images_in_parallel_with_the_same_results():
    images = [sample(16, w=801, h=601, seed=s) for s in range(3)]
    chain = kevra.Chain().median(0.05, 6).unsharp(5, 1.5).gamma(0.9)
    serial = [chain.run(a) for a in images]
    with ThreadPoolExecutor(len(images)) as pool:  # one thread per image
        results = list(pool.map(chain.run, images))
    assert all(np.array_equal(r, s) for r, s in zip(results, serial))

    # The interpreter lock is let go while an image is processed. With a switch interval far
    # longer than a run, this thread could otherwise not run again before the run had ended.
    done = []

    def one_run():
        chain.run(images[0])
        done.append(True)

    interval = sys.getswitchinterval()
    sys.setswitchinterval(60.0)
    try:
        worker = threading.Thread(target=one_run)
        worker.start()
        during_the_run = not done
        worker.join()
    finally:
        sys.setswitchinterval(interval)
    assert during_the_run


def test_help_texts_and_stub():
    assert kevra.__version__.count(".") == 2
    assert "channels='rgb'" in kevra.__doc__ and "FiltreMedian" in kevra.median.__doc__
    assert "CSequenceur" in kevra.Chain.__doc__
    stub = open(os.path.join(os.path.dirname(kevra.__file__), "kevra.pyi")).read()
    public = [n for n in dir(kevra) if not n.startswith("_")]
    assert [n for n in public if "def " + n + "(" not in stub and "class " + n not in stub and n + " =" not in stub] == []


def test_example_script_writes_the_command_lines_file(tmp_path):
    script = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "python", "xray_chain.py")
    p = subprocess.run([sys.executable, script, "--out", "corrected.bmp"], cwd=tmp_path, capture_output=True, text=True)
    assert p.returncode == 0, p.stderr
    corrected = kevra.read_bmp(str(tmp_path / "corrected.bmp"))
    assert corrected.dtype == np.uint16 and corrected.shape == (480, 640)
    if CLI:
        run([CLI, "process", str(tmp_path / "xray16.bmp"), str(tmp_path / "cli.bmp"), "--median", "0.2,3",
             "--unsharp", "2,1.5", "--gamma", "0.8", "--stretch", "0.01,0.99"])
        assert (tmp_path / "cli.bmp").read_bytes() == (tmp_path / "corrected.bmp").read_bytes()
