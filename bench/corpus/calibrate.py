#!/usr/bin/python3
"""Calibrates the mapping of the automatic settings on the corpus.

  calibrate.py CORPUS --grid GRID.json [--murmex PATH] [--passes 2] [--jobs 2]
               [--start MODEL.json] [--include-held-out]

The automatic settings map three features of an image per channel group
(host/auto_settings.cpp) onto each setting's host scale:

  v = base + perLevel * level + perRatio * ratio + perTexture * texture
  value = v, or 2^v for the smoothnesses (clamped to the scale)

with level = log2(256 * image noise), ratio = log2(image noise / profile
noise) and texture = log2(median block detail / image noise), luminance for
the luminance settings and chroma for the chroma ones. The features come
from `murmex denoise --settings auto -v` (so they are exactly the
program's). The linear rows start from a least-squares fit to the
per-image grid-search best settings (GRID.json from harness.py --mode
grid), or from --start; then a coordinate search maximises the mean PSNR
over the calibration images (the held-out ones as well with
--include-held-out), with a penalty on any image that loses more than
0.1 dB to the defaults and on any level whose mean gain over the defaults
is below 1.2 dB.
Prints the table to paste into kAutoModel.
"""
import argparse
import json
import math
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import harness  # noqa: E402

SCALES = {  # name: (low, high, chroma)
    "lum-strength": (0.0, 20.0, False), "lum-smoothness": (0.0, 20.0, False), "lum-contrast": (0.0, 20.0, False),
    "chroma-strength": (0.0, 20.0, True), "chroma-smoothness": (0.0, 20.0, True),
    "chroma-contrast": (0.0, 20.0, True), "sharpen-amount": (0.0, 400.0, False),
    "sharpen-radius": (0.4, 3.0, False),
}
# Rows whose formula gives the base-2 logarithm of the value: the
# smoothnesses, which scale the profile's noise energy, so that a profile
# off by a factor k in noise wants a smoothness 1/k^2 as large.
EXPONENTIAL = {"lum-smoothness", "chroma-smoothness"}
LEVEL_RANGE = (-4.0, 6.0)
RATIO_RANGE = (-3.0, 2.0)
TEXTURE_RANGE = (0.0, 6.0)
NO_NOISE = 1e-6
# The coefficients searched and their steps (base, per level, per ratio).
# Sharpening never improved fidelity on the grid, so its rows stay as the
# least-squares fit gives them (no sharpening).
STEPS = {"lum-strength": (2.0, 1.0, 1.0, 1.0), "lum-smoothness": (0.5, 0.25, 0.5, 0.25),
         "chroma-strength": (2.0, 1.0, 1.0, 1.0), "chroma-smoothness": (0.5, 0.25, 0.5, 0.25),
         "lum-contrast": (0.5, 0.25, 0, 0), "chroma-contrast": (1.0, 0.5, 0, 0)}

NOISE_LINE = re.compile(r"noise Y ([\d.]+) Cr ([\d.]+) Cb ([\d.]+) in the image, "
                        r"Y ([\d.]+) Cr ([\d.]+) Cb ([\d.]+) in the profile \(\d+ samples\); "
                        r"detail Y ([\d.]+) Cr ([\d.]+) Cb ([\d.]+)")


def clamp(v, lo, hi):
    return min(max(v, lo), hi)


def features(noise):
    """[(level, ratio, texture) of luminance, the same of chroma] as the program computes them."""
    img_y, img_cr, img_cb, pr_y, pr_cr, pr_cb, det_y, det_cr, det_cb = noise
    out = []
    for image, profile, detail in ((img_y, pr_y, det_y),
                                   (0.5 * (img_cr + img_cb), 0.5 * (pr_cr + pr_cb), 0.5 * (det_cr + det_cb))):
        level = math.log2(max(image, 1e-7) * 256.0)
        ratio = math.log2(max(image, 1e-7) / max(profile, NO_NOISE))
        texture = math.log2(max(detail, 1e-7) / max(image, 1e-7))
        out.append((clamp(level, *LEVEL_RANGE), clamp(ratio, *RATIO_RANGE), clamp(texture, *TEXTURE_RANGE)))
    return out


def settings_for(model, low_freq_from, noise):
    f = features(noise)
    s = dict(harness.DEFAULTS)
    if noise[3] < NO_NOISE and 0.5 * (noise[4] + noise[5]) < NO_NOISE:
        return s
    for name, coef in model.items():
        lo, hi, chroma = SCALES[name]
        v = coef[0] + sum(c * x for c, x in zip(coef[1:], f[1 if chroma else 0]))
        s[name] = round(clamp(2.0 ** v if name in EXPONENTIAL else v, lo, hi), 4)
    s["low-frequency"] = f[0][0] >= low_freq_from
    return s


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("corpus")
    ap.add_argument("--grid", required=True)
    ap.add_argument("--murmex", default=os.path.join(os.path.dirname(__file__), "..", "..", "build", "apps", "murmex"))
    ap.add_argument("--passes", type=int, default=2)
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--include-held-out", action="store_true",
                    help="calibrate on every image, the held-out ones as well")
    ap.add_argument("--start", metavar="MODEL.json",
                    help="start the search from this model ({name: coefficients, \"low-frequency-from\": level})")
    args = ap.parse_args(argv)
    corpus = harness.Corpus(args.corpus, os.path.abspath(args.murmex))
    held_out = set(corpus.meta["held_out"])
    cases = [(lv, n) for lv in corpus.meta["levels"] for n in corpus.meta["images"]
             if (args.include_held_out or n not in held_out) and corpus.has_samples(lv, n)]

    with open(args.grid) as f:
        grid = json.load(f)
    defaults = {(r["level"], r["image"]): r["psnr"] for r in grid if r["mode"] == "defaults"}
    best = {(r["level"], r["image"]): r["settings"] for r in grid if r["mode"] == "grid"}

    noise = {}
    tmp = tempfile.mkdtemp()
    for lv, n in cases:
        r = subprocess.run([corpus.murmex, "denoise", corpus.noisy(lv, n), "--profile", corpus.profile(lv, n),
                            "-o", os.path.join(tmp, "out.tif"), "--settings", "auto", "-v", "-q", "--levels", "2"],
                           env=corpus.env, capture_output=True, text=True)
        m = NOISE_LINE.search(r.stderr)
        if not m:
            sys.exit("calibrate: no noise line for %s %s: %s" % (lv, n, r.stderr))
        noise[(lv, n)] = [float(x) for x in m.groups()]

    # Least squares on the grid's best settings.
    model = {}
    for name, (lo, hi, chroma) in SCALES.items():
        rows, ys = [], []
        for case in cases:
            f = features(noise[case])
            rows.append([1.0, *f[1 if chroma else 0]])
            ys.append(best[case][name])
        coef, *_ = np.linalg.lstsq(np.array(rows), np.array(ys), rcond=None)
        model[name] = [float(c) for c in coef]
    # The grid's smoothness steps are too coarse for a fit of the logarithm:
    # start from the scale's middle, scaled by the ratio (the search moves
    # them on from there).
    model["lum-smoothness"] = [1.8, 0.0, 1.0, 0.0]
    model["chroma-smoothness"] = [2.8, 0.5, 2.0, 0.0]
    low_freq_from = 100.0
    if args.start:
        with open(args.start) as f:
            start = json.load(f)
        low_freq_from = start.pop("low-frequency-from", low_freq_from)
        model.update(start)

    cache = {}

    def evaluate(model, low_freq_from):
        tasks = [(case, settings_for(model, low_freq_from, noise[case])) for case in cases]

        def run(task):
            case, s = task
            key = (case, tuple(sorted(s.items())))
            if key not in cache:
                cache[key] = corpus.denoise(case[0], case[1], s, with_ssim=False)[0]
            return case, cache[key]

        with ThreadPoolExecutor(max_workers=args.jobs) as pool:
            psnrs = dict(pool.map(run, tasks))
        # Penalties: images that lose more than 0.1 dB to the defaults, and
        # levels whose mean gain over the defaults falls below 1.2 dB.
        loss = sum(max(0.0, defaults[c] - psnrs[c] - 0.1) for c in cases)
        levels = sorted({c[0] for c in cases})
        short = sum(max(0.0, 1.2 - np.mean([psnrs[c] - defaults[c] for c in cases if c[0] == lv])) for lv in levels)
        return float(np.mean(list(psnrs.values()))) - 2.0 * loss / len(cases) - short / len(levels), psnrs

    score, _ = evaluate(model, low_freq_from)
    print("start: score %.3f" % score, flush=True)
    for _ in range(args.passes):
        improved = False
        for name, steps in STEPS.items():
            for k in range(4):
                for direction in (1, -1):
                    step = steps[k]
                    if step == 0:
                        continue
                    while True:
                        trial = {n: list(c) for n, c in model.items()}
                        trial[name][k] += direction * step
                        s, _ = evaluate(trial, low_freq_from)
                        if s <= score + 1e-3:
                            break
                        model, score, improved = trial, s, True
                        print("  %s[%d] %+.2f: score %.3f" % (name, k, direction * step, score), flush=True)
        for t in (0.0, 0.5, 1.0, 1.5, 2.0, 100.0):
            s, _ = evaluate(model, t)
            if s > score + 1e-3:
                low_freq_from, score, improved = t, s, True
        print("pass: score %.3f" % score, flush=True)
        if not improved:
            break

    _, psnrs = evaluate(model, low_freq_from)
    for case in cases:
        print("%-9s %-22s defaults %6.2f  model %6.2f" % (case[0], case[1], defaults[case], psnrs[case]))
    print("constexpr ModelRow kAutoModel[] = {")
    for name, coef in model.items():
        print('    {"%s", %s, %s, %.2ff, %.2ff, %.2ff, %.2ff},' % (
            name, "true" if SCALES[name][2] else "false", "true" if name in EXPONENTIAL else "false", *coef))
    print("};")
    print("constexpr float kLowFrequencyFromLevel = %.1ff;" % low_freq_from)


if __name__ == "__main__":
    main(sys.argv[1:])
