"""Progress, cancelling, Ctrl-C and the GIL during a job."""

import os
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest

import images
import murmex


@pytest.fixture(scope="module")
def tall():
    """An image with many batches of rows, so that a job can be stopped
    half-way: 1200 x 200."""
    return images.noisy_rgb16(1200, 200, seed=3)


def test_progress_is_reported_on_the_calling_thread(noisy, profile):
    calls = []

    def progress(text, fraction):
        calls.append((text, fraction, threading.get_ident()))

    murmex.denoise(noisy, profile, threads=2, progress=progress)

    assert len(calls) >= 3
    assert all(isinstance(text, str) and text for text, _, _ in calls)
    assert all(0.0 <= fraction <= 1.0 for _, fraction, _ in calls)
    assert {ident for _, _, ident in calls} == {threading.get_ident()}
    assert calls[-1][1] == 1.0


def test_measuring_reports_progress(noisy):
    fractions = []
    murmex.Profile.measure(noisy, progress=lambda text, fraction: fractions.append(fraction))
    assert fractions and fractions[-1] == 1.0


def test_returning_true_cancels_the_job(tall, profile):
    calls = []

    def progress(text, fraction):
        calls.append(fraction)
        return len(calls) == 2

    out = np.zeros_like(tall)
    with pytest.raises(murmex.Cancelled):
        murmex.denoise(tall, profile, threads=1, progress=progress, out=out)
    # No report after the one that cancelled, and rows were left unwritten.
    assert len(calls) == 2
    unwritten = ~out.any(axis=(1, 2))
    assert unwritten.sum() > tall.shape[0] // 2


def test_cancelling_a_measurement(noisy):
    with pytest.raises(murmex.Cancelled):
        murmex.Profile.measure(noisy, progress=lambda text, fraction: True)


class Interrupter:
    """Sends SIGINT to the process once started is non-empty, but only while
    the job has not returned, so that a late signal cannot escape the test."""

    def __init__(self, started):
        self.started = started
        self.lock = threading.Lock()
        self.running = True
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while not self.started:
            time.sleep(0.001)
            with self.lock:
                if not self.running:
                    return
        with self.lock:
            if self.running:
                os.kill(os.getpid(), signal.SIGINT)

    def job_returned(self):
        with self.lock:
            self.running = False
        self.thread.join()


@pytest.mark.parametrize("python_progress", [False, True])
def test_ctrl_c_cancels_the_job_and_raises(tall, profile, python_progress):
    # A builtin progress function runs no Python code, so the module's own
    # signal check has to notice; a Python one gets the KeyboardInterrupt
    # raised inside it.
    started = {}
    progress = started.__setitem__
    if python_progress:
        def progress(text, fraction):
            started[text] = fraction
    out = np.zeros_like(tall)
    interrupter = Interrupter(started)
    with pytest.raises(KeyboardInterrupt):
        try:
            murmex.denoise(tall, profile, threads=1, progress=progress, out=out)
        finally:
            interrupter.job_returned()
    unwritten = ~out.any(axis=(1, 2))
    assert unwritten.sum() > tall.shape[0] // 2


def test_an_exception_in_progress_stops_the_job_and_is_raised(tall, profile):
    def progress(text, fraction):
        raise RuntimeError("stop here")

    out = np.zeros_like(tall)
    with pytest.raises(RuntimeError, match="stop here"):
        murmex.denoise(tall, profile, threads=1, progress=progress, out=out)
    assert (~out.any(axis=(1, 2))).sum() > tall.shape[0] // 2


def test_other_python_threads_run_while_the_engine_works(profile):
    # With threads=0 and an image narrower than a strip, the engine computes
    # every row between the first two progress reports, on this thread.
    # Another thread counts the steps it takes while this one is not in a
    # report. Were the GIL held during the computation, it would take a step
    # or two between those reports at most (when the interpreter hands it the
    # GIL on the way out of the first); a step takes about a tenth of a
    # millisecond (sleep(0) with the timer's slack), and the computation of
    # 1.5 megapixels a tenth of a second or more, so it takes hundreds, and
    # still more than 20 with a small share of a busy processor.
    image = images.noisy_rgb16(1000, 1500, seed=4)
    go, stop = threading.Event(), threading.Event()
    reporting = [True]
    outside = [0]

    def other():
        go.wait()
        while not stop.is_set():
            if not reporting[0]:
                outside[0] += 1
            time.sleep(0)

    seen = []

    def progress(text, fraction):
        reporting[0] = True
        seen.append(outside[0])
        go.set()
        reporting[0] = False

    thread = threading.Thread(target=other)
    thread.start()
    try:
        murmex.denoise(image, profile, threads=0, progress=progress)
    finally:
        stop.set()
        go.set()
        thread.join()
    assert len(seen) >= 3, seen
    assert seen[1] - seen[0] >= 20, seen


def test_a_run_without_workers_does_not_change_later_runs(tall, profile, noisy):
    # The library keeps the height of a job without workers as its rows per
    # request for later jobs; the module starts every job afresh.
    def reports():
        calls = []
        murmex.denoise(tall, profile, threads=1, progress=lambda text, fraction: calls.append(fraction))
        return len(calls)

    before = reports()
    murmex.denoise(noisy, profile, threads=0)
    assert reports() == before


def run_script(script, cwd, timeout):
    """Runs a Python script with the tests' modules importable; returns the
    completed process."""
    env = dict(os.environ, PYTHONPATH=os.pathsep.join([os.path.dirname(__file__), os.environ["PYTHONPATH"]]))
    return subprocess.run([sys.executable, "-c", script], env=env, cwd=cwd, capture_output=True, text=True,
                          timeout=timeout)


def test_automatic_settings_beside_a_job_leave_standard_output_alone(tmp_path):
    # Both read the profile through the library, which writes on the
    # process's standard output while the module catches it: the two must
    # not take turns at it. A child process, so that a lost standard output
    # is its own.
    script = """
import os, threading, time, murmex, images
profile = murmex.Profile.measure(images.noisy_rgb16())
image = images.noisy_rgb16(24, 32, seed=2)
stop = threading.Event()
def automatic():
    while not stop.is_set():
        murmex.denoise(image, profile, threads=0, settings="auto")
thread = threading.Thread(target=automatic)
thread.start()
deadline = time.monotonic() + 2
while time.monotonic() < deadline:
    murmex.denoise(image, profile, threads=0)
stop.set()
thread.join()
os.write(1, b"standard output still here\\n")
"""
    done = run_script(script, tmp_path, 120)
    assert done.returncode == 0, done.stderr
    assert done.stdout == "standard output still here\n"


def test_a_job_started_from_a_progress_function_raises_instead_of_waiting_for_ever(tmp_path):
    # The progress function runs while its job holds the one-job lock. Run in
    # a child process with a time limit, so that a job that waits for that
    # lock fails the test instead of stopping the suite.
    script = """
import murmex, images
image = images.noisy_rgb16(64, 80, seed=5)
profile = murmex.Profile.measure(images.noisy_rgb16())
profile.save("p.dnp")
errors = []
looks = []

def progress(text, fraction):
    # Looking at a profile needs no job.
    looks.append((repr(profile), len(profile.samples), len(bytes(profile)), profile.header["iso"]))
    for start in (lambda: murmex.denoise(image, profile), lambda: murmex.Profile.measure(image),
                  lambda: murmex.Profile.load("p.dnp"), lambda: profile.save("q.dnp")):
        try:
            start()
        except RuntimeError as e:
            errors.append(str(e))
    return True

try:
    murmex.denoise(image, profile, progress=progress)
except murmex.Cancelled:
    pass
print(len(errors))
print(errors[0])
print(errors[-1])
print(looks[0] == (repr(profile), len(profile.samples), len(bytes(profile)), profile.header["iso"]))
murmex.denoise(image, profile)  # the lock was left free
"""
    try:
        done = run_script(script, tmp_path, 120)
    except subprocess.TimeoutExpired:
        pytest.fail("a job started from a progress function waited for the running job")
    assert done.returncode == 0, done.stderr
    count, first, last, looked = done.stdout.splitlines()
    assert count == "4"
    assert looked == "True"
    assert first == ("cannot denoise the image: called from the progress function of a job that is still "
                     "running; murmex runs one job at a time")
    assert last.startswith("cannot write ")
    assert not (tmp_path / "q.dnp").exists()
