#!/usr/bin/env python3
"""The murmex Python module's overhead at 24 megapixels: murmex.denoise on a
uint16 RGB array in memory against the engine alone through the C interface
(murmex_engine_alone: packed RGBX in memory, memcpy callbacks), same image,
profile, default settings and thread count. Runs alternate between the two;
the best of each is compared, elapsed and in processor time (all threads,
which other load on a shared machine disturbs less), and the two results
must be identical.

On a loaded machine both times swing by 15% from run to run. --instructions
counts instead, under valgrind's callgrind, the instructions executed inside
DnRemoveNoise2 (callbacks included) without worker threads: a figure that
load does not move (3000x2000 on 2026-11-23: engine alone 3.541e9, module
3.578e9, +1.0%; the row conversions cost 134e6 where memcpy costs 97e6).

usage: bench/python_overhead.py [--build build] [--runs 3] [--threads N] [--size 6000x4000] [--instructions]
"""

import argparse
import os
import pathlib
import re
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


MODULE_RUN = """
import sys
import numpy as np
import murmex
width, height, raw, dnp, threads = sys.argv[1:]
image = np.fromfile(raw, dtype=np.uint16).reshape(int(height), int(width), 3)
murmex.denoise(image, murmex.Profile.load(dnp), threads=int(threads))
"""


def instructions(command, env=None):
    """Instructions executed inside DnRemoveNoise2 by command, under callgrind."""
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "callgrind.out")
        subprocess.run(["valgrind", "--tool=callgrind", "--toggle-collect=DnRemoveNoise2",
                        f"--callgrind-out-file={out}", *command], check=True, capture_output=True, env=env)
        with open(out) as f:
            return int(re.search(r"^totals: (\d+)", f.read(), re.M).group(1))


def main():
    top = pathlib.Path(__file__).resolve().parent.parent
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=str(top / "build"))
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--threads", type=int, default=os.cpu_count())
    parser.add_argument("--size", default="6000x4000")
    parser.add_argument("--instructions", action="store_true",
                        help="count instructions under callgrind, without worker threads, instead of timing")
    args = parser.parse_args()
    width, height = map(int, args.size.split("x"))
    build = pathlib.Path(args.build)
    sys.path.insert(0, str(build / "apps" / "python" / "module"))
    import murmex

    image, tile = test_image(width, height)
    profile = murmex.Profile.measure(tile)
    if args.instructions:
        with tempfile.TemporaryDirectory() as tmp:
            raw, dnp = os.path.join(tmp, "in.rgb16"), os.path.join(tmp, "p.dnp")
            image.tofile(raw)
            profile.save(dnp)
            engine = instructions([str(build / "bench" / "murmex_engine_alone"), raw, str(width), str(height), dnp,
                                   "0", "1"])
            env = dict(os.environ, PYTHONPATH=str(build / "apps" / "python" / "module"))
            module = instructions([sys.executable, "-c", MODULE_RUN, str(width), str(height), raw, dnp, "0"], env)
        print(f"{width}x{height}, no worker threads, instructions in DnRemoveNoise2: engine alone {engine:.4g}, "
              f"murmex.denoise {module:.4g}, overhead {100 * (module / engine - 1):+.1f}%")
        return

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
