#!/usr/bin/env python3
"""Compare two methods on a picture: their tone response, and a crop of each side by side.

    python3 python/examples/compare_methods.py [PICTURE] [-m RoundFaxest -m sdiufiavs] [-o compare]

PICTURE is any grey or colour picture Pillow reads (colour is taken as its luminance); without
one a synthetic photograph-like picture is made. Writes OUT-crops.png (the original crop and each
method's dots at one pixel a dot) and OUT-tone.png (with matplotlib) or OUT-tone.csv.
"""
import argparse

import numpy as np

import halftone


def load(path):
    if path is None:  # soft shapes, a ramp and fine lines
        y, x = np.mgrid[0:384, 0:512]
        img = 128 + 90 * np.sin(x / 40.0) * np.cos(y / 55.0)
        img[300:] = np.linspace(0, 255, 512)
        img[:, 480::6] = 20
        return img.clip(0, 255).astype(np.uint8)
    from PIL import Image
    with Image.open(path) as im:
        return np.asarray(im.convert("L"))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("picture", nargs="?")
    ap.add_argument("-m", "--method", action="append", help="method name (twice)")
    ap.add_argument("-o", "--output", default="compare")
    ap.add_argument("--time", type=int, default=1)
    args = ap.parse_args()
    names = args.method or ["RoundFaxest", "sdiufiavs"]
    plane = load(args.picture)
    h, w = plane.shape
    crop = (slice(h // 4, h // 4 + 128), slice(w // 4, w // 4 + 192))
    tiles = [plane[crop]]
    for name in names:
        info = halftone.method(name)
        dots = halftone.run(name, plane, time=args.time)[0]
        tiles.append(halftone.preview(dots[crop], info.output_bits))
    gap = np.full((tiles[0].shape[0], 8), 255, np.uint8)
    halftone.save_png(f"{args.output}-crops.png", np.hstack([t for tile in tiles for t in (tile, gap)][:-1]))

    curves = {name: halftone.tone_response(name, time=args.time) for name in names}
    try:
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt
    except ImportError:
        with open(f"{args.output}-tone.csv", "w") as f:
            f.write("level," + ",".join(names) + "\n")
            for i, (level, _) in enumerate(curves[names[0]]):
                f.write(f"{level}," + ",".join(f"{curves[n][i][1]:.4f}" for n in names) + "\n")
        print(f"wrote {args.output}-crops.png and {args.output}-tone.csv (matplotlib not installed)")
        return
    fig, ax = plt.subplots(figsize=(6, 4.5))
    for name in names:
        ax.plot([l for l, _ in curves[name]], [c for _, c in curves[name]], label=name)
    ax.plot([0, 255], [1, 0], ":", color="grey", label="linear")
    ax.set(xlabel="input level (255 = paper)", ylabel="ink coverage", title="Tone response")
    ax.legend()
    fig.tight_layout()
    fig.savefig(f"{args.output}-tone.png", dpi=100)
    print(f"wrote {args.output}-crops.png and {args.output}-tone.png")


if __name__ == "__main__":
    main()
