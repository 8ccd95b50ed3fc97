"""murmex.Profile: measuring, files, bytes, samples, settings and errors."""

import json
import os
import pickle
import resource
import signal
import stat
import threading
import time

import numpy as np
import pytest

import images
import murmex
import tiff16

SAMPLE_FIELDS = (["left", "top", "right", "bottom", "y", "cr", "cb", "r", "g", "b", "lab_l", "lab_a", "lab_b"]
                 + [f"noise_{c}{level}" for c in ("y", "cr", "cb") for level in range(5)])


def test_samples_are_a_structured_array_of_the_28_words(profile):
    samples = profile.samples
    assert samples.dtype.names == tuple(SAMPLE_FIELDS)
    assert samples.dtype.itemsize == 112
    assert len(samples) > 0
    noise = np.stack([samples[f] for f in SAMPLE_FIELDS[13:]])
    assert ((noise > 0) | (noise == -1)).all()
    assert (samples["noise_y0"] > 0).all()


def test_samples_match_what_the_program_shows(profile, tmp_path, run_cli):
    profile.save(tmp_path / "p.dnp")
    shown = json.loads(run_cli("info", tmp_path / "p.dnp", "--json").stdout)
    samples = profile.samples
    assert len(samples) == shown["sample_count"]
    for record, s in zip(samples, shown["samples"]):
        assert [record[f] for f in ("left", "top", "right", "bottom")] == s["rect"]
        got = [record[f] for f in SAMPLE_FIELDS[4:]]
        want = s["ycrcb"] + s["rgb"] + s["lab"] + s["noise"]["y"] + s["noise"]["cr"] + s["noise"]["cb"]
        np.testing.assert_array_equal(np.array(got, np.float32),
                                      np.array([np.nan if v is None else v for v in want], np.float32))


def test_settings_match_what_the_program_shows(profile, tmp_path, run_cli):
    profile.save(tmp_path / "p.dnp")
    shown = json.loads(run_cli("info", tmp_path / "p.dnp", "--json").stdout)["settings"]
    assert profile.settings == {name.replace("-", "_"): value for name, value in shown.items()}


def test_a_saved_and_loaded_profile_has_the_same_samples(tmp_path):
    measured = murmex.Profile.measure(images.noisy_rgb16(seed=11))
    measured.save(tmp_path / "m.dnp")
    loaded = murmex.Profile.load(tmp_path / "m.dnp")
    assert loaded.samples.tobytes() == measured.samples.tobytes()
    assert loaded.settings == measured.settings
    assert murmex.Profile.load(str(tmp_path / "m.dnp")).samples.tobytes() == measured.samples.tobytes()


def test_bytes_and_pickle_round_trip(profile):
    again = murmex.Profile.from_bytes(bytes(profile))
    assert bytes(again) == bytes(profile)
    assert again.samples.tobytes() == profile.samples.tobytes()
    assert murmex.Profile.from_bytes(bytearray(bytes(profile))).settings == profile.settings
    unpickled = pickle.loads(pickle.dumps(profile))
    assert bytes(unpickled) == bytes(profile)


def test_relaxed_measuring_finds_at_least_as_many_patches():
    image = images.noisy_rgb16(seed=5)
    assert len(murmex.Profile.measure(image, relaxed=True).samples) >= len(murmex.Profile.measure(image).samples)


def test_assigned_settings_are_stored_in_the_profile(profile, tmp_path, run_cli):
    p = murmex.Profile.from_bytes(bytes(profile))
    before = p.settings
    p.settings = {"lum_strength": 14.5, "sharpen_amount": 80, "low_frequency": True}
    after = p.settings
    # The library stores settings on its own scale: they come back within a float's rounding.
    assert after == pytest.approx({**before, "lum_strength": 14.5, "sharpen_amount": 80.0, "low_frequency": True},
                                  rel=1e-6)
    assert murmex.Profile.from_bytes(bytes(p)).settings == after
    p.save(tmp_path / "s.dnp")
    assert murmex.Profile.load(tmp_path / "s.dnp").settings == after
    shown = json.loads(run_cli("info", tmp_path / "s.dnp", "--json").stdout)["settings"]
    assert shown["lum-strength"] == pytest.approx(14.5, rel=1e-6) and shown["low-frequency"] is True
    assert p.samples.tobytes() == profile.samples.tobytes()

    p.settings = before
    assert p.settings == pytest.approx(before, rel=1e-6)


def test_bad_settings_are_refused_and_change_nothing(profile):
    p = murmex.Profile.from_bytes(bytes(profile))
    before = p.settings
    with pytest.raises(ValueError, match="chroma_contrast must be from 0 to 20"):
        p.settings = {"lum_strength": 3, "chroma_contrast": -1}
    with pytest.raises(TypeError, match="unknown setting 'strength'"):
        p.settings = {"strength": 3}
    with pytest.raises(TypeError, match="suppress_halos must be True or False"):
        p.settings = {"suppress_halos": "no"}
    with pytest.raises(TypeError, match="settings must be a dict"):
        p.settings = [("lum_strength", 3)]
    assert p.settings == before


def test_a_corrupt_profile_raises_the_library_message_and_prints_nothing(profile, tmp_path, capfd, run_cli):
    corrupt = bytearray(bytes(profile))
    corrupt[len(corrupt) // 3:] = b"\xff" * (len(corrupt) - len(corrupt) // 3)
    path = tmp_path / "corrupt.dnp"
    path.write_bytes(bytes(corrupt))
    # The program reports the library's message after the file's name.
    shown = run_cli("info", path, check=False).stderr.strip()
    engine_message = shown.split(f"{path}: ", 1)[1]
    assert engine_message
    capfd.readouterr()

    with pytest.raises(murmex.Error) as loading:
        murmex.Profile.load(path)
    with pytest.raises(murmex.Error) as reading:
        murmex.Profile.from_bytes(bytes(corrupt))
    with pytest.raises(murmex.Error) as denoising:
        murmex.denoise(images.noisy_rgb16(40, 60), path)

    assert str(loading.value) == f"cannot load profile {path}: {engine_message}"
    assert str(reading.value) == f"cannot read the profile data: {engine_message}"
    assert str(denoising.value) == f"cannot load profile {path}: {engine_message}"
    captured = capfd.readouterr()
    assert captured.out == ""


def test_empty_and_unsuitable_profile_data_is_refused():
    with pytest.raises(murmex.Error, match="empty"):
        murmex.Profile.from_bytes(b"")
    with pytest.raises(murmex.Error, match="cannot read the profile data: "):
        murmex.Profile.from_bytes(b"not a profile")
    with pytest.raises(TypeError, match="takes bytes, not str"):
        murmex.Profile.from_bytes("p.dnp")
    with pytest.raises(TypeError, match="a path must be a str"):
        murmex.Profile.load(3)


def test_a_profile_that_is_a_named_pipe_is_refused_without_opening_it(tmp_path):
    # Opening a pipe without a writer would wait where Ctrl-C cannot reach.
    os.mkfifo(tmp_path / "pipe.dnp")
    with pytest.raises(murmex.Error, match=f"cannot load profile {tmp_path}/pipe.dnp: it is a named pipe, not a "
                                           "regular file"):
        murmex.Profile.load(tmp_path / "pipe.dnp")


def test_an_unwritable_path_raises_the_library_error(profile, tmp_path):
    with pytest.raises(murmex.Error, match=f"cannot write profile {tmp_path}/no/such/dir/p.dnp: "):
        profile.save(tmp_path / "no" / "such" / "dir" / "p.dnp")


def test_a_failed_save_leaves_the_file_it_would_replace_as_it_was(profile, tmp_path):
    target = tmp_path / "p.dnp"
    target.write_bytes(b"an older file")
    full = murmex.Profile.from_bytes(bytes(profile))
    full.save(tmp_path / "size.dnp")
    size = (tmp_path / "size.dnp").stat().st_size
    (tmp_path / "size.dnp").unlink()
    # A file size limit below the profile's size stops the write part way,
    # as a full disk would.
    limit = resource.getrlimit(resource.RLIMIT_FSIZE)
    handler = signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (size // 2, limit[1]))
    try:
        with pytest.raises(murmex.Error, match=f"cannot write profile {target}: "):
            full.save(target)
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, limit)
        signal.signal(signal.SIGXFSZ, handler)
    assert target.read_bytes() == b"an older file"
    assert sorted(os.listdir(tmp_path)) == ["p.dnp"]


def test_saving_through_a_link_replaces_the_file_it_points_to(profile, tmp_path):
    (tmp_path / "real.dnp").write_bytes(b"old")
    os.chmod(tmp_path / "real.dnp", 0o640)
    os.symlink("real.dnp", tmp_path / "link.dnp")
    profile.save(tmp_path / "link.dnp")
    assert os.readlink(tmp_path / "link.dnp") == "real.dnp"
    assert (tmp_path / "real.dnp").read_bytes() == bytes(murmex.Profile.load(tmp_path / "link.dnp"))
    assert stat.S_IMODE((tmp_path / "real.dnp").stat().st_mode) == 0o640
    assert sorted(os.listdir(tmp_path)) == ["link.dnp", "real.dnp"]


def test_measuring_leaves_stdout_clean(capfd):
    # The library prints a diagnostic line while it measures.
    murmex.Profile.measure(images.noisy_rgb16(80, 120))
    assert capfd.readouterr().out == ""


def test_the_header_is_stored_and_shown_by_the_program(profile, tmp_path, run_cli):
    p = murmex.Profile.from_bytes(bytes(profile))
    assert set(p.header.values()) == {None}
    p.header = {"maker": "Acme", "model": "Model 7", "iso": 800, "exposure_comp": -0.5, "comment": "test"}
    assert repr(p) == f"<murmex.Profile Acme Model 7, ISO 800, {len(p.samples)} samples>"
    p.save(tmp_path / "h.dnp")
    shown = json.loads(run_cli("info", tmp_path / "h.dnp", "--json").stdout)["header"]
    assert shown == {"maker": "Acme", "model": "Model 7", "iso": 800, "exposurecomp": -0.5, "comment": "test"}
    loaded = murmex.Profile.load(tmp_path / "h.dnp")
    assert loaded.header == p.header
    assert loaded.samples.tobytes() == profile.samples.tobytes()
    assert loaded.settings == p.settings

    p.header = {"comment": None, "iso": 1600}
    assert p.header["comment"] is None and p.header["iso"] == 1600 and p.header["maker"] == "Acme"


def test_bad_header_fields_are_refused(profile):
    p = murmex.Profile.from_bytes(bytes(profile))
    with pytest.raises(TypeError, match="unknown header field 'camera'"):
        p.header = {"camera": "Acme"}
    with pytest.raises(TypeError, match="header field iso must be an int"):
        p.header = {"iso": "800"}
    with pytest.raises(TypeError, match="header field maker must be a str"):
        p.header = {"maker": 3}
    assert set(p.header.values()) == {None}


def test_measuring_with_auto_settings_stores_what_the_program_stores(tmp_path, run_cli):
    noisy = images.noisy_rgb16()
    tiff16.write(tmp_path / "in.tif", noisy)
    run_cli("profile", tmp_path / "in.tif", "-o", tmp_path / "auto.dnp", "--settings", "auto")

    measured = murmex.Profile.measure(noisy, settings="auto")

    assert measured.settings == murmex.Profile.load(tmp_path / "auto.dnp").settings
    assert measured.settings != murmex.DEFAULT_SETTINGS
    assert measured.samples.tobytes() == murmex.Profile.measure(noisy).samples.tobytes()
    with pytest.raises(ValueError, match='settings must be "auto" or None'):
        murmex.Profile.measure(noisy, settings="best")


def test_changing_a_profile_while_another_thread_uses_it_leaves_that_job_its_own_profile(noisy):
    # A job runs without the GIL while another thread gives the profile new
    # settings and a new header, again and again, so that its old serialised
    # form is dropped around every job's start. Each job must still read the
    # profile it started with, whole (AddressSanitizer reports a read of a
    # dropped one).
    mine = murmex.Profile.from_bytes(bytes(murmex.Profile.measure(noisy)))
    image = images.noisy_rgb16(24, 32, seed=2)
    expected = murmex.denoise(image, mine, threads=0)
    stop = threading.Event()
    changes = [0]

    def change():
        while not stop.is_set():
            mine.settings = {"lum_strength": float(changes[0] % 20)}
            mine.header = {"iso": 100 + changes[0] % 7}
            changes[0] += 1

    changer = threading.Thread(target=change)
    changer.start()
    results = []
    try:
        # Two seconds at least, and on until both threads have gone round
        # often enough (a sanitizer build on a busy machine is slow).
        start = time.monotonic()
        while time.monotonic() < start + 2.0 or (
                (changes[0] <= 10 or len(results) <= 20) and time.monotonic() < start + 60.0):
            results.append(murmex.denoise(image, mine, threads=0))
            results.append(murmex.Profile.from_bytes(bytes(mine)).samples)
            mine.samples
    finally:
        stop.set()
        changer.join()
    assert changes[0] > 10 and len(results) > 20
    for result in results[0::2]:
        assert np.array_equal(result, expected)
    for samples in results[1::2]:
        assert np.array_equal(samples, mine.samples)
