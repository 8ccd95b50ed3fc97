#!/usr/bin/python3
"""Runs `murmex denoise` over the corpus and reports fidelity to the clean images.

  harness.py CORPUS [--murmex PATH] [--mode defaults|auto|set|grid ...]
             [--set lum-strength=14 ...] [--levels ...] [--images ...]
             [--json FILE] [--jobs 2]

Every noisy image gets one profile, measured once with `murmex profile
--relaxed` (the corpus images are small, with few flat patches) and kept in
CORPUS/profiles; every run then denoises with that profile, so that all
modes see the same noise measurement (an image whose profile holds no
sample is left out: the program refuses such a profile). Modes:

  defaults  the middle of every scale, no sharpening (the program's default)
  auto      --settings auto (the settings chosen from the image and profile)
  set       the defaults overridden by the --set values
  grid      per image, a coordinate search over the settings grid below,
            starting from the defaults, scored by PSNR against the clean
            image: the yardstick that no automatic choice can see

PSNR is over the three 16-bit channels (peak 65535); SSIM is scikit-image's
structural_similarity on the 16-bit RGB image (data range 65535, channels
averaged). Prints a table per level (means) and, with --json, writes every
image's figures and settings.
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile
import warnings
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import tifffile

warnings.filterwarnings("ignore")

DEFAULTS = {
    "lum-strength": 10.0, "lum-smoothness": 10.0, "lum-contrast": 10.0,
    "chroma-strength": 10.0, "chroma-smoothness": 10.0, "chroma-contrast": 10.0,
    "sharpen-amount": 0.0, "sharpen-radius": 1.7, "suppress-halos": True, "low-frequency": False,
}

# The grid of the yardstick search: the values tried per setting.
GRID = [
    ("lum-strength", [0.0, 5.0, 10.0, 12.5, 15.0, 17.5, 20.0]),
    ("lum-smoothness", [0.0, 2.5, 5.0, 7.5, 10.0, 12.5, 15.0, 17.5, 20.0]),
    ("lum-contrast", [6.0, 8.0, 9.0, 10.0, 11.0, 12.0, 14.0]),
    ("chroma-strength", [5.0, 10.0, 15.0, 20.0]),
    ("chroma-smoothness", [2.5, 5.0, 10.0, 15.0, 20.0]),
    ("chroma-contrast", [6.0, 8.0, 10.0, 12.0, 14.0]),
    ("sharpen-amount", [0.0, 25.0, 50.0, 100.0, 200.0]),
    ("sharpen-radius", [0.8, 1.2, 1.7, 2.4]),
    ("low-frequency", [False, True]),
]


def settings_args(settings):
    args = []
    for k, v in settings.items():
        if k == "suppress-halos":
            args.append("--suppress-halos" if v else "--no-suppress-halos")
        elif k == "low-frequency":
            args.append("--low-frequency" if v else "--no-low-frequency")
        else:
            args += ["--" + k, repr(float(v))]
    return args


def read16(path):
    a = tifffile.imread(path)
    return a[..., :3].astype(np.float64)


def psnr(a, b):
    mse = np.mean((a - b) ** 2)
    return 99.0 if mse == 0 else 10.0 * np.log10(65535.0 ** 2 / mse)


def ssim(a, b):
    from skimage.metrics import structural_similarity
    return structural_similarity(a, b, data_range=65535.0, channel_axis=2)


class Corpus:
    def __init__(self, root, murmex):
        self.root = root
        self.murmex = murmex
        with open(os.path.join(root, "corpus.json")) as f:
            self.meta = json.load(f)
        self.clean = {}
        self.env = dict(os.environ, MURMEX_PROFILES=os.path.join(root, "no-library"))

    def clean_image(self, name):
        if name not in self.clean:
            self.clean[name] = read16(os.path.join(self.root, "clean", name + ".tif"))
        return self.clean[name]

    def noisy(self, level, name):
        return os.path.join(self.root, level, name + ".tif")

    def profile(self, level, name):
        path = os.path.join(self.root, "profiles", level, name + ".dnp")
        if not os.path.exists(path):
            os.makedirs(os.path.dirname(path), exist_ok=True)
            subprocess.run([self.murmex, "profile", self.noisy(level, name), "-o", path, "--relaxed", "-q"],
                           check=True, env=self.env, stdout=subprocess.DEVNULL)
        return path

    def has_samples(self, level, name):
        """Whether the image's profile holds any noise sample (the program
        refuses a profile without samples: it would remove nothing)."""
        r = subprocess.run([self.murmex, "info", self.profile(level, name), "--json"], check=True, env=self.env,
                           capture_output=True, text=True)
        return json.loads(r.stdout)["sample_count"] > 0

    def denoise(self, level, name, settings=None, auto=False, extra=(), with_ssim=True):
        """Denoises one image; returns (psnr, ssim or None, chosen settings text or None)."""
        with tempfile.TemporaryDirectory() as tmp:
            out = os.path.join(tmp, "out.tif")
            cmd = [self.murmex, "denoise", self.noisy(level, name), "--profile", self.profile(level, name),
                   "-o", out, "-q", "-j", "1"]
            if auto:
                cmd += ["--settings", "auto", "-v"]
            if settings:
                cmd += settings_args(settings)
            cmd += list(extra)
            r = subprocess.run(cmd, env=self.env, capture_output=True, text=True)
            if r.returncode != 0:
                sys.exit("harness: %s failed: %s" % (" ".join(cmd), r.stderr.strip()))
            result = read16(out)
        clean = self.clean_image(name)
        chosen = [line for line in r.stderr.splitlines() if "automatic settings" in line or "in the profile" in line] if auto else None
        return psnr(result, clean), ssim(result, clean) if with_ssim else None, chosen


def grid_search(corpus, level, name):
    """Coordinate search from the defaults: two passes over GRID, best PSNR."""
    best = dict(DEFAULTS)
    seen = {}

    def score(s):
        key = tuple(sorted(s.items()))
        if key not in seen:
            seen[key] = corpus.denoise(level, name, s, with_ssim=False)
        return seen[key]

    best_score = score(best)
    for _ in range(2):
        improved = False
        for key, values in GRID:
            if key == "sharpen-radius" and best["sharpen-amount"] == 0.0:
                continue
            for v in values:
                trial = dict(best, **{key: v})
                s = score(trial)
                if s[0] > best_score[0] + 1e-4:
                    best, best_score, improved = trial, s, True
        if not improved:
            break
    return best_score, best, len(seen)


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("corpus")
    ap.add_argument("--murmex", default=os.path.join(os.path.dirname(__file__), "..", "..", "build", "apps", "murmex"))
    ap.add_argument("--mode", action="append", choices=["defaults", "auto", "set", "grid"])
    ap.add_argument("--set", action="append", default=[], metavar="NAME=VALUE")
    ap.add_argument("--levels")
    ap.add_argument("--images")
    ap.add_argument("--held-out", action="store_true", help="only the held-out images")
    ap.add_argument("--json")
    ap.add_argument("--with", dest="earlier", action="append", default=[], metavar="FILE.json",
                    help="also tabulate the results of an earlier --json (e.g. a grid search)")
    ap.add_argument("--jobs", type=int, default=2)
    args = ap.parse_args(argv)
    corpus = Corpus(args.corpus, os.path.abspath(args.murmex))
    modes = args.mode or ["defaults", "auto"]
    levels = args.levels.split(",") if args.levels else corpus.meta["levels"]
    images = args.images.split(",") if args.images else corpus.meta["images"]
    if args.held_out:
        images = [i for i in images if i in corpus.meta["held_out"]]
    custom = dict(DEFAULTS)
    for item in args.set:
        k, v = item.split("=", 1)
        custom[k] = v in ("1", "yes", "true") if k in ("suppress-halos", "low-frequency") else float(v)

    # Images whose profile found no flat patch cannot be denoised with it and
    # are left out.
    cases = [(lv, n) for lv in levels for n in images if corpus.has_samples(lv, n)]
    for lv, n in sorted(set((lv, n) for lv in levels for n in images) - set(cases)):
        print("left out: %s %s (no noise sample in its profile)" % (lv, n))

    def run(task):
        mode, lv, name = task
        if mode == "grid":
            (p, _, _), best, n = grid_search(corpus, lv, name)
            _, s, _ = corpus.denoise(lv, name, best)
            return task, {"psnr": p, "ssim": s, "settings": best, "runs": n}
        if mode == "auto":
            p, s, chosen = corpus.denoise(lv, name, auto=True)
            return task, {"psnr": p, "ssim": s, "chosen": chosen}
        p, s, _ = corpus.denoise(lv, name, custom if mode == "set" else DEFAULTS)
        return task, {"psnr": p, "ssim": s}

    tasks = [(m, lv, n) for m in modes for lv, n in cases]
    with ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
        results = dict(pool.map(run, tasks))
    for path in args.earlier:
        with open(path) as f:
            for r in json.load(f):
                task = (r["mode"], r["level"], r["image"])
                if task[0] not in modes and (task[1], task[2]) in cases:
                    results[task] = r
    modes = sorted({t[0] for t in results}, key=["defaults", "set", "auto", "grid"].index)

    print("%-10s" % "level" + "".join("  %-16s" % m for m in modes))
    for lv in levels:
        row = "%-10s" % lv
        for m in modes:
            ps = [results[(m, lv, n)]["psnr"] for n in images if (lv, n) in cases]
            ss = [results[(m, lv, n)]["ssim"] for n in images if (lv, n) in cases]
            row += "  %6.2f dB %.4f" % (np.mean(ps), np.mean(ss))
        print(row)
    held = [n for n in images if n in corpus.meta["held_out"]]
    if held and len(held) < len(images):
        row = "%-10s" % "held out"
        for m in modes:
            row += "  %6.2f dB %.4f" % (np.mean([results[(m, lv, n)]["psnr"] for lv, n in cases if n in held]),
                                       np.mean([results[(m, lv, n)]["ssim"] for lv, n in cases if n in held]))
        print(row)
    for m in modes:
        for ref in ("defaults", "grid"):
            if m == ref or ref not in modes:
                continue
            worst = min((results[(m, lv, n)]["psnr"] - results[(ref, lv, n)]["psnr"], lv, n) for lv, n in cases)
            print("%s vs %s: worst image %+.2f dB (%s %s)" % (m, ref, worst[0], worst[1], worst[2]))
    if args.json:
        with open(args.json, "w") as f:
            json.dump([{"mode": m, "level": lv, "image": n, **r} for (m, lv, n), r in results.items()], f, indent=1)


if __name__ == "__main__":
    main(sys.argv[1:])
