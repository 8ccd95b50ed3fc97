"""Shared fixtures of the murmex module's tests. CTest runs them with the
built module on PYTHONPATH and the murmex program's path in MURMEX_CLI."""

import os
import subprocess

import pytest

import images
import murmex


@pytest.fixture(scope="session")
def noisy():
    """A 240 x 320 uint16 RGB test image with noise."""
    return images.noisy_rgb16()


@pytest.fixture(scope="session")
def profile(noisy):
    """A profile measured from the noisy test image."""
    return murmex.Profile.measure(noisy)


@pytest.fixture
def run_cli(tmp_path):
    """Runs the murmex program with an empty profile library and a home of
    its own; returns the completed process."""
    program = os.environ.get("MURMEX_CLI")
    if not program:
        pytest.skip("MURMEX_CLI does not name the murmex program")
    home = tmp_path / "home"
    (home / "profiles").mkdir(parents=True)
    env = dict(os.environ, HOME=str(home), MURMEX_PROFILES=str(home / "profiles"),
               XDG_DATA_HOME=str(home / "data"))

    def run(*args, check=True):
        done = subprocess.run([program, *map(str, args)], env=env, capture_output=True, text=True)
        if check and done.returncode != 0:
            raise AssertionError(f"murmex {' '.join(map(str, args))} failed: {done.stderr}")
        return done

    return run
