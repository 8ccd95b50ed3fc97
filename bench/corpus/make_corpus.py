#!/usr/bin/python3
"""Generates the evaluation corpus: clean photographs with camera-like noise.

The clean images are Debian's packaged sample photographs (scikit-image's
skimage.data colour photos and SciPy's sample image), reduced so that the
whole corpus is denoised in minutes. Noise is added the way a camera makes
it:

  1. the sRGB photo is decoded to linear light;
  2. each channel is divided by its white-balance gain and scaled to
     electrons at the level's full well (fewer electrons at higher ISO);
  3. the sensor is a Bayer mosaic (RGGB): each pixel keeps one channel,
     draws Poisson shot noise and adds Gaussian read noise;
  4. the mosaic's noise is demosaiced bilinearly (it becomes spatially and
     colour correlated) and added to the photo, scaled back and
     white-balanced;
  5. the result is sRGB-encoded, clipped and quantised to 16 bits.

Writes OUT/clean/NAME.tif and OUT/LEVEL/NAME.tif (16-bit RGB TIFF) and
OUT/corpus.json listing images, levels and the held-out split. The noise is
seeded per image and level, so the corpus is the same on every run.

  bench/corpus/make_corpus.py OUT [--no-demosaic] [--levels iso200,iso3200] [--unseen]
"""
import argparse
import json
import os
import sys
import warnings

import numpy as np
import tifffile

warnings.filterwarnings("ignore")

# Full well in electrons at white, read noise in electrons. The full well
# falls by two stops per level: ISO 200, 800, 3200, 12800.
LEVELS = {
    "iso200": (12000.0, 4.0),
    "iso800": (3000.0, 3.0),
    "iso3200": (750.0, 2.5),
    "iso12800": (187.5, 2.0),
}
# White-balance gains of a daylight raw (red and blue are recorded weaker).
WB_GAINS = np.array([2.1, 1.0, 1.6])

# name -> (loader, reduction factor). The held-out images are left out of
# the calibration of the automatic settings unless it is asked to take them.
HELD_OUT = ["rocket", "immunohistochemistry"]


def load_sources(unseen=False):
    """The corpus photos, or with unseen the packaged colour photos that no
    calibration has ever used (a check of how the automatic settings carry
    over to new images)."""
    import scipy.misc
    import skimage.data as data

    if unseen:
        sources = {
            "motorcycle": (lambda: data.stereo_motorcycle()[0], 1),
            "retina": (data.retina, 2),
        }
    else:
        sources = {
            "astronaut": (data.astronaut, 1),
            "chelsea": (data.chelsea, 1),
            "coffee": (data.coffee, 1),
            "face": (scipy.misc.face, 2),
            "hubble": (data.hubble_deep_field, 2),
            "rocket": (data.rocket, 1),
            "immunohistochemistry": (data.immunohistochemistry, 1),
        }
    images = {}
    for name, (loader, factor) in sources.items():
        rgb = loader()[..., :3].astype(np.float64) / 255.0
        if factor > 1:
            # Averaging in linear light also averages away most of the
            # source's own noise and compression artefacts.
            lin = srgb_to_linear(rgb)
            h, w = (lin.shape[0] // factor) * factor, (lin.shape[1] // factor) * factor
            lin = lin[:h, :w].reshape(h // factor, factor, w // factor, factor, 3).mean(axis=(1, 3))
            rgb = linear_to_srgb(lin)
        images[name] = rgb
    return images


def srgb_to_linear(v):
    return np.where(v <= 0.04045, v / 12.92, ((v + 0.055) / 1.055) ** 2.4)


def linear_to_srgb(v):
    v = np.clip(v, 0.0, 1.0)
    return np.where(v <= 0.0031308, v * 12.92, 1.055 * v ** (1.0 / 2.4) - 0.055)


def quantise16(rgb):
    return np.round(np.clip(rgb, 0.0, 1.0) * 65535.0).astype(np.uint16)


def bayer_masks(h, w):
    """RGGB: red at even rows and columns, blue at odd rows and columns."""
    yy, xx = np.mgrid[0:h, 0:w]
    r = (yy % 2 == 0) & (xx % 2 == 0)
    b = (yy % 2 == 1) & (xx % 2 == 1)
    g = ~(r | b)
    return [r, g, b]


def convolve3(plane, kernel):
    p = np.pad(plane, 1, mode="reflect")
    h, w = plane.shape
    out = np.zeros_like(plane)
    for dy in range(3):
        for dx in range(3):
            if kernel[dy][dx]:
                out += kernel[dy][dx] * p[dy:dy + h, dx:dx + w]
    return out


def demosaic_bilinear(mosaic, masks):
    k_rb = [[0.25, 0.5, 0.25], [0.5, 1.0, 0.5], [0.25, 0.5, 0.25]]
    k_g = [[0.0, 0.25, 0.0], [0.25, 1.0, 0.25], [0.0, 0.25, 0.0]]
    out = np.empty(mosaic.shape + (3,))
    for c, kernel in zip(range(3), [k_rb, k_g, k_rb]):
        out[..., c] = convolve3(mosaic * masks[c], kernel)
    return out


def add_camera_noise(rgb, full_well, read_noise, seed, demosaic=True):
    rng = np.random.default_rng(seed)
    electrons = srgb_to_linear(rgb) / WB_GAINS * full_well
    h, w, _ = rgb.shape
    if demosaic:
        masks = bayer_masks(h, w)
        mosaic = np.zeros((h, w))
        for c in range(3):
            mosaic[masks[c]] = electrons[..., c][masks[c]]
        noisy = rng.poisson(mosaic).astype(np.float64) + rng.normal(0.0, read_noise, mosaic.shape)
        # Only the noise goes through the demosaicing: the clean image is the
        # reference, and interpolation errors on edges are not noise.
        lin = electrons + demosaic_bilinear(noisy - mosaic, masks)
    else:
        lin = rng.poisson(electrons).astype(np.float64) + rng.normal(0.0, read_noise, electrons.shape)
    lin = lin / full_well * WB_GAINS
    return linear_to_srgb(lin)


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("out")
    ap.add_argument("--no-demosaic", action="store_true", help="noise per pixel and channel, uncorrelated")
    ap.add_argument("--levels", default=",".join(LEVELS), help="comma-separated subset of " + ", ".join(LEVELS))
    ap.add_argument("--unseen", action="store_true", help="the photos never used in any calibration instead")
    args = ap.parse_args(argv)
    levels = [lv for lv in args.levels.split(",") if lv]
    for lv in levels:
        if lv not in LEVELS:
            sys.exit("make_corpus: unknown level " + lv)

    images = load_sources(args.unseen)
    os.makedirs(os.path.join(args.out, "clean"), exist_ok=True)
    for name, rgb in images.items():
        # The clean reference is the source's 8-bit values rescaled to 16
        # bits, exactly what the noisy images are measured against.
        tifffile.imwrite(os.path.join(args.out, "clean", name + ".tif"), quantise16(rgb), photometric="rgb")
    for li, lv in enumerate(levels):
        full_well, read_noise = LEVELS[lv]
        os.makedirs(os.path.join(args.out, lv), exist_ok=True)
        for ii, (name, rgb) in enumerate(images.items()):
            noisy = add_camera_noise(rgb, full_well, read_noise, seed=1000 * (li + 1) + ii,
                                     demosaic=not args.no_demosaic)
            tifffile.imwrite(os.path.join(args.out, lv, name + ".tif"), quantise16(noisy), photometric="rgb")
    with open(os.path.join(args.out, "corpus.json"), "w") as f:
        json.dump({"images": list(images), "levels": levels, "held_out": [] if args.unseen else HELD_OUT,
                   "demosaic": not args.no_demosaic}, f, indent=1)
    print("corpus: %d images x %d levels in %s" % (len(images), len(levels), args.out))


if __name__ == "__main__":
    main(sys.argv[1:])
