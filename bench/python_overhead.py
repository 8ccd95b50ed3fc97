#!/usr/bin/env python3
"""The murmex Python module's overhead at 24 megapixels: murmex.denoise on a
uint16 RGB array in memory against the engine alone through the C interface
(murmex_engine_alone: packed RGBX in memory, memcpy callbacks), same image,
profile, default settings and thread count. Runs alternate between the two;
the best of each is compared, elapsed and in processor time (all threads,
which other load on a shared machine disturbs less), and the two results
must be identical.

usage: bench/python_overhead.py [--build build] [--runs 3] [--threads N] [--size 6000x4000]
"""

import argparse
import os
import pathlib
import resource
import subprocess
import sys
import tempfile
import time

import numpy as np


def test_image(width, height):
    """Flat colour tiles with noise: a 1500 x 1000 scene repeated."""
    rng = np.random.default_rng(24)
    tile_h, tile_w = 1000, 1500
    ys, xs = np.mgrid[0:tile_h, 0:tile_w]
    colours = rng.uniform(0.1, 0.9, size=(tile_h // 100 + 1, tile_w // 100 + 1, 3)).astype(np.float32)
    scene = colours[ys // 100, xs // 100] + rng.normal(0, 0.03, size=(tile_h, tile_w, 3)).astype(np.float32)
    tile = np.round(np.clip(scene, 0, 1) * 65535).astype(np.uint16)
    reps = (-(-height // tile_h), -(-width // tile_w), 1)
    return np.ascontiguousarray(np.tile(tile, reps)[:height, :width]), tile


def processor_time():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def main():
    top = pathlib.Path(__file__).resolve().parent.parent
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=str(top / "build"))
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--threads", type=int, default=os.cpu_count())
    parser.add_argument("--size", default="6000x4000")
    args = parser.parse_args()
    width, height = map(int, args.size.split("x"))
    build = pathlib.Path(args.build)
    sys.path.insert(0, str(build / "apps" / "python" / "module"))
    import murmex

    image, tile = test_image(width, height)
    profile = murmex.Profile.measure(tile)
    engine_times, module_times, engine_cpu, module_cpu = [], [], [], []
    with tempfile.TemporaryDirectory() as tmp:
        raw, dnp, out = (os.path.join(tmp, name) for name in ("in.rgb16", "p.dnp", "out.rgb16"))
        image.tofile(raw)
        profile.save(dnp)
        for run in range(args.runs):
            extra = [out] if run == 0 else []
            done = subprocess.run([str(build / "bench" / "murmex_engine_alone"), raw, str(width), str(height), dnp,
                                   str(args.threads), "1", *extra], check=True, capture_output=True, text=True)
            wall, cpu = map(float, done.stdout.split())
            engine_times.append(wall)
            engine_cpu.append(cpu)
            start, start_cpu = time.perf_counter(), processor_time()
            result = murmex.denoise(image, profile, threads=args.threads)
            module_times.append(time.perf_counter() - start)
            module_cpu.append(processor_time() - start_cpu)
            if run == 0:
                engine_result = np.fromfile(out, dtype=np.uint16).reshape(image.shape)
                if not np.array_equal(result, engine_result):
                    sys.exit("the module and the engine alone disagree")
                del engine_result
            print(f"run {run + 1}: engine alone {wall:.2f} s ({cpu:.2f} s processor), "
                  f"murmex.denoise {module_times[-1]:.2f} s ({module_cpu[-1]:.2f} s processor)", flush=True)
    print(f"{width}x{height} ({width * height / 1e6:.0f} MP), {args.threads} threads, best of {args.runs}:")
    for what, engine, module in (("elapsed", engine_times, module_times), ("processor", engine_cpu, module_cpu)):
        print(f"  {what}: engine alone {min(engine):.2f} s, murmex.denoise {min(module):.2f} s, "
              f"overhead {100 * (min(module) / min(engine) - 1):+.1f}%")


if __name__ == "__main__":
    main()
