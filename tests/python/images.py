"""Test images with fixed seeds: flat colour tiles with camera-like noise, so
that the library finds patches to measure, and edges for it to keep."""

import numpy as np


def clean_scene(height=240, width=320, tile=40, seed=7):
    """Float64 RGB in 0..1: tiles of random colours, one gradient tile row."""
    rng = np.random.default_rng(seed)
    rows, cols = -(-height // tile), -(-width // tile)
    colours = rng.uniform(0.08, 0.92, size=(rows, cols, 3))
    ys, xs = np.mgrid[0:height, 0:width]
    scene = colours[ys // tile, xs // tile]
    scene[: tile // 2] *= np.linspace(0.5, 1.0, width)[None, :, None]
    return scene


def noisy_scene(height=240, width=320, sigma=0.04, seed=7):
    """Float64 RGB in 0..1: clean_scene plus luminance and colour noise."""
    rng = np.random.default_rng(seed + 1)
    scene = clean_scene(height, width, seed=seed)
    luminance = rng.normal(0.0, sigma, size=(height, width, 1))
    colour = rng.normal(0.0, sigma / 2, size=(height, width, 3))
    return np.clip(scene + luminance + colour, 0.0, 1.0)


def noisy_rgb16(height=240, width=320, seed=7):
    """uint16 RGB: noisy_scene on the full 16-bit scale."""
    return np.round(noisy_scene(height, width, seed=seed) * 65535).astype(np.uint16)


def alpha_ramp(height, width, dtype):
    """An alpha channel that differs at every pixel of a row: a ramp plus a
    checker, on the full scale of dtype."""
    ramp = (np.arange(width)[None, :] + 7 * np.arange(height)[:, None]) % 251 / 250.0
    ramp = np.where((np.arange(height)[:, None] + np.arange(width)[None, :]) % 2, ramp, 1.0 - ramp)
    if np.dtype(dtype).kind == "f":
        return ramp.astype(dtype)
    return np.round(ramp * np.iinfo(dtype).max).astype(dtype)
