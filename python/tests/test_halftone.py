"""The Python module against the library and the `halftone` command (HALFTONE_COMMAND)."""
import os
import subprocess

import numpy as np
import pytest
from PIL import Image

import halftone

COMMAND = os.environ.get("HALFTONE_COMMAND", "halftone")


def picture(h: int, w: int, seed: int = 3) -> np.ndarray:
    """A ramp with a band of noise: every level and some texture; odd sizes on purpose."""
    ramp = np.tile(np.linspace(0, 255, w).astype(np.uint8), (h, 1))
    noise = np.random.default_rng(seed).integers(0, 256, (h, w), dtype=np.uint8)
    ramp[h // 3: h // 2] = noise[h // 3: h // 2]
    return ramp


def command_dots(tmp_path, plane: np.ndarray, method: str, bits: int, *args: str) -> np.ndarray:
    """The dot planes the command writes to its TIFF, as codes (0 = no ink)."""
    src, out = tmp_path / "in.pgm", tmp_path / "dots.tif"
    Image.fromarray(plane).save(src)
    subprocess.run([COMMAND, str(src), "-m", method, "-q", "-o", str(out), *args], check=True)
    pages = []
    with Image.open(out) as tif:
        for i in range(getattr(tif, "n_frames", 1)):
            tif.seek(i)
            a = np.asarray(tif)
            # min-is-white pages: a 1-bit page reads True where there is no dot; deeper ones
            # read 255 - code * 255 / (2^bits - 1).
            pages.append((~a).astype(np.uint8) if a.dtype == bool else (255 - a.astype(int)) // (255 // (2**bits - 1)))
    return np.stack(pages).astype(np.uint8)


# A method of each family and each depth; the screen needs its matrix built.
@pytest.mark.parametrize("name", ["sdiufiavs", "RoundFaxest", "RoundPump1", "suiruiskao2", "sdiufiavs4",
                                  "Kaocosyx", "hxkjsdi67x", "nchsuw56xd", "ghskdjiekld"])
def test_dots_equal_the_command(tmp_path, name):
    info = halftone.method(name)
    plane = picture(45, 77)
    want = command_dots(tmp_path, plane, name, info.output_bits, "--time", "5", "--band-rows", "16", "--mode", "1")
    if "bayer" in info.tables:
        halftone.build_bayer()
    got = halftone.run(name, plane, time=5, band_rows=16, mode=1)
    assert got.shape == want.shape
    assert np.array_equal(got, want)


def test_job_band_by_band_equals_run_and_packed_unpacks():
    planes = np.stack([picture(50, 33, s) for s in range(3)])
    whole = halftone.run("FastGroup", planes, time=9, band_rows=7)
    halftone.set_fixed_time(9)
    with halftone.Job("FastGroup", width=33, planes=3) as job:
        bands = [job.band(planes[:, top:top + 7], last=top + 7 >= 50) for top in range(0, 50, 7)]
    assert np.array_equal(np.concatenate(bands, axis=1), whole)
    packed = halftone.run("FastGroup", planes, time=9, band_rows=7, packed=True)
    assert packed.shape == (3, 50, 12)  # 33 pixels at 2 bits: 9 bytes, padded to 12
    assert np.array_equal(halftone.unpack(packed, 2, 33), whole)
    assert np.array_equal(halftone.run("FastGroup", planes, time=9, band_rows=7, threads=2), whole)


def test_levels_as_ints_or_text_and_registry():
    plane = picture(20, 40)
    assert np.array_equal(halftone.run("RoundFaxest", plane, time=2, levels=[0, 60, 130, 255]),
                          halftone.run("RoundFaxest", plane, time=2, levels="0,60,130,255,"))
    names = [m.name for m in halftone.methods()]
    assert len(names) == len(set(names)) and "RoundFaxest" in names
    assert halftone.method("RoundPump").output_bits == 4
    assert halftone.method("WindowText").tables == ("bitmap",)


def test_refusals_raise_with_the_library_code(tmp_path):
    halftone.set_host_folder(tmp_path)
    try:
        with pytest.raises(halftone.Error) as missing:
            halftone.load_bitmap("no-such.bmp")
        assert missing.value.code == 20101 and "opened" in missing.value.meaning
        (tmp_path / "Moths").mkdir()
        (tmp_path / "Moths" / "stack.bin").write_bytes(bytes(64))
        with pytest.raises(halftone.Error) as bad:
            halftone.load_mono_patterns("stack.bin", 12, 8)  # width not a multiple of 8
        assert bad.value.code == 20104
    finally:
        halftone.set_host_folder(None)


@pytest.mark.parametrize("planes, error", [
    (np.zeros((4, 4), np.float32), TypeError),
    (np.zeros((4, 4), np.int16), TypeError),
    ([[0, 1]], TypeError),
    (np.zeros((1, 1, 4, 4), np.uint8), ValueError),
    (np.zeros((0, 4, 4), np.uint8), ValueError),
    (np.zeros((1, 0, 4), np.uint8), ValueError),
])
def test_bad_arrays_are_refused_before_any_call(planes, error):
    with pytest.raises(error):
        halftone.run("RoundFaxest", planes)


def test_job_refuses_a_band_of_another_shape():
    job = halftone.Job("sdiufiavs", width=16, planes=2)
    with pytest.raises(ValueError):
        job.band(np.zeros((2, 4, 17), np.uint8))
    with pytest.raises(ValueError):
        halftone.Job("sdicxx78xy", width=16)
    with pytest.raises(KeyError):
        halftone.method("NoSuchMethod")
