"""murmex.denoise against the murmex program, and its handling of dtypes,
shapes, strides, alpha and out=."""

import numpy as np
import pytest

import images
import murmex
import tiff16

SETTINGS = dict(lum_strength=13.5, lum_smoothness=8, lum_contrast=11, chroma_strength=15,
                chroma_smoothness=9, chroma_contrast=10.5, sharpen_amount=120, sharpen_radius=1.2,
                suppress_halos=False, low_frequency=True)


def cli_options(settings):
    options = []
    for name, value in settings.items():
        flag = "--" + name.replace("_", "-")
        if isinstance(value, bool):
            options.append(flag if value else "--no-" + name.replace("_", "-"))
        else:
            options += [flag, str(value)]
    return options


def test_uint16_rgb_is_bit_identical_to_the_program(noisy, profile, tmp_path, run_cli):
    profile.save(tmp_path / "p.dnp")
    tiff16.write(tmp_path / "in.tif", noisy)
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "out.tif", "--profile", tmp_path / "p.dnp",
            "--threads", 2, *cli_options(SETTINGS))
    expected = tiff16.read(tmp_path / "out.tif")

    result = murmex.denoise(noisy, profile, threads=2, **SETTINGS)

    assert result.dtype == np.uint16 and result.shape == noisy.shape
    assert not np.array_equal(result, noisy)
    np.testing.assert_array_equal(result, expected)
    # The path form of the profile argument gives the same pixels.
    np.testing.assert_array_equal(murmex.denoise(noisy, str(tmp_path / "p.dnp"), threads=2, **SETTINGS), expected)


@pytest.mark.parametrize("threads", [0, 1])
def test_turbo_and_thread_counts_match_the_program(noisy, profile, tmp_path, run_cli, threads):
    profile.save(tmp_path / "p.dnp")
    tiff16.write(tmp_path / "in.tif", noisy)
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "out.tif", "--profile", tmp_path / "p.dnp",
            "--threads", threads, "--turbo", *cli_options(murmex.DEFAULT_SETTINGS))

    result = murmex.denoise(noisy, profile, threads=threads, turbo=True)

    np.testing.assert_array_equal(result, tiff16.read(tmp_path / "out.tif"))
    assert not np.array_equal(result, murmex.denoise(noisy, profile, threads=threads))


def test_stored_settings_through_keywords_match_the_program(noisy, profile, tmp_path, run_cli):
    stored = murmex.Profile.from_bytes(bytes(profile))
    stored.settings = dict(lum_strength=6, chroma_strength=17, sharpen_amount=50)
    stored.save(tmp_path / "p.dnp")
    tiff16.write(tmp_path / "in.tif", noisy)
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "out.tif", "--profile", tmp_path / "p.dnp")

    result = murmex.denoise(noisy, tmp_path / "p.dnp", **stored.settings)

    np.testing.assert_array_equal(result, tiff16.read(tmp_path / "out.tif"))


def test_defaults_and_no_profile_match_the_program(noisy, tmp_path, run_cli):
    # Without a profile both measure one from the image; without options
    # both use the default settings.
    tiff16.write(tmp_path / "in.tif", noisy)
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "out.tif")

    np.testing.assert_array_equal(murmex.denoise(noisy), tiff16.read(tmp_path / "out.tif"))


def test_thread_counts_give_identical_pixels(noisy, profile):
    results = [murmex.denoise(noisy, profile, threads=n) for n in (0, 1, 2)]
    np.testing.assert_array_equal(results[0], results[1])
    np.testing.assert_array_equal(results[0], results[2])


def to_scale(image):
    """The engine's 16-bit view of an image, computed independently."""
    if image.dtype == np.uint16:
        return image.astype(np.int64)
    if image.dtype == np.uint8:
        return image.astype(np.int64) * 257
    scaled = np.clip(np.nan_to_num(image.astype(np.float64), nan=0.0), 0.0, 1.0) * 65535
    return np.rint(scaled).astype(np.int64)


def from_scale(values, dtype):
    """Engine values (0..65535) in dtype, computed independently."""
    if dtype == np.uint16:
        return values.astype(np.uint16)
    if dtype == np.uint8:
        return np.floor(values / 257 + 0.5).astype(np.uint8)
    return (values.astype(np.float64) / 65535).astype(dtype)


def in_dtype(rgb16, dtype):
    if dtype == np.uint16:
        return rgb16
    if dtype == np.uint8:
        return (rgb16 // 257).astype(np.uint8)
    return (rgb16 / 65535).astype(dtype)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32, np.float64])
def test_every_dtype_round_trips_with_the_documented_scaling(noisy, profile, dtype):
    image = in_dtype(noisy, dtype)
    engine_input = to_scale(image).astype(np.uint16)
    reference = murmex.denoise(engine_input, profile, threads=1)

    result = murmex.denoise(image, profile, threads=1)

    assert result.dtype == image.dtype and result.shape == image.shape
    np.testing.assert_array_equal(result, from_scale(reference, dtype))


def test_floats_outside_zero_to_one_are_clipped(noisy, profile):
    image = (noisy / 65535).astype(np.float32)
    wild = image.copy()
    wild[::7, ::5, 0] = 3.0
    wild[1::9, ::4, 1] = -2.0
    wild[2::11, ::3, 2] = np.nan
    clipped = np.nan_to_num(np.clip(wild, 0, 1), nan=0.0)

    np.testing.assert_array_equal(murmex.denoise(wild, profile, threads=1),
                                  murmex.denoise(clipped, profile, threads=1))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32, np.float64])
def test_alpha_is_untouched_and_colour_is_as_without_alpha(noisy, profile, dtype):
    rgb = in_dtype(noisy, dtype)
    alpha = images.alpha_ramp(rgb.shape[0], rgb.shape[1], dtype)
    rgba = np.concatenate([rgb, alpha[..., None]], axis=2)

    result = murmex.denoise(rgba, profile, threads=1)

    assert result.shape == rgba.shape and result.dtype == rgba.dtype
    np.testing.assert_array_equal(result[..., 3], alpha)
    np.testing.assert_array_equal(result[..., :3], murmex.denoise(rgb, profile, threads=1))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32, np.float64])
def test_grey_is_denoised_as_equal_rgb_and_comes_back_as_their_mean(noisy, profile, dtype):
    grey16 = noisy[..., 1]
    grey = in_dtype(grey16, dtype)
    as_rgb = np.repeat(to_scale(grey).astype(np.uint16)[..., None], 3, axis=2)
    rgb_out = murmex.denoise(as_rgb, profile, threads=1).astype(np.int64)
    mean = (rgb_out.sum(axis=2) + 1) // 3  # rounded; a sum of three never ends in a half

    result = murmex.denoise(grey, profile, threads=1)

    assert result.shape == grey.shape and result.dtype == grey.dtype
    np.testing.assert_array_equal(result, from_scale(mean, dtype))
    # H x W x 1 is grey too, and H x W x 2 grey with alpha.
    np.testing.assert_array_equal(murmex.denoise(grey[..., None], profile, threads=1)[..., 0], result)
    alpha = images.alpha_ramp(grey.shape[0], grey.shape[1], dtype)
    pair = murmex.denoise(np.stack([grey, alpha], axis=2), profile, threads=1)
    np.testing.assert_array_equal(pair[..., 0], result)
    np.testing.assert_array_equal(pair[..., 1], alpha)


def test_strided_inputs_give_the_same_pixels(noisy, profile):
    expected = murmex.denoise(noisy, profile, threads=1)
    fortran = np.asfortranarray(noisy)
    planar = np.ascontiguousarray(noisy.transpose(2, 0, 1)).transpose(1, 2, 0)
    bgr_view = np.ascontiguousarray(noisy[..., ::-1])[..., ::-1]
    padded = np.zeros((noisy.shape[0] * 2, noisy.shape[1] * 3, 4), np.uint16)
    padded[::2, ::3, :3] = noisy
    flipped = np.ascontiguousarray(noisy[::-1])[::-1]
    for view in (fortran, planar, bgr_view, padded[::2, ::3, :3], flipped):
        assert not view.flags.c_contiguous
        np.testing.assert_array_equal(murmex.denoise(view, profile, threads=1), expected)


def test_foreign_byte_order_is_accepted(noisy, profile):
    swapped = noisy.astype(">u2")
    result = murmex.denoise(swapped, profile, threads=1)
    np.testing.assert_array_equal(result, murmex.denoise(noisy, profile, threads=1))


def test_out_receives_the_result(noisy, profile):
    expected = murmex.denoise(noisy, profile, threads=1)

    out = np.zeros_like(noisy)
    assert murmex.denoise(noisy, profile, threads=1, out=out) is out
    np.testing.assert_array_equal(out, expected)

    strided = np.zeros((noisy.shape[0], noisy.shape[1] * 2, 3), np.uint16)[:, ::2]
    murmex.denoise(noisy, profile, threads=1, out=strided)
    np.testing.assert_array_equal(strided, expected)


def test_out_may_be_the_image_itself(noisy, profile):
    expected = murmex.denoise(noisy, profile, threads=2)
    image = noisy.copy()
    assert murmex.denoise(image, profile, threads=2, out=image) is image
    np.testing.assert_array_equal(image, expected)

    rgba = np.concatenate([noisy, images.alpha_ramp(*noisy.shape[:2], np.uint16)[..., None]], axis=2)
    alpha = rgba[..., 3].copy()
    murmex.denoise(rgba, profile, threads=2, out=rgba)
    np.testing.assert_array_equal(rgba[..., :3], expected)
    np.testing.assert_array_equal(rgba[..., 3], alpha)


def test_keyword_defaults_are_the_default_settings(noisy, profile):
    assert murmex.DEFAULT_SETTINGS["sharpen_amount"] == murmex.SCALES["sharpen_amount"][0]
    for name, (low, middle, high) in murmex.SCALES.items():
        assert low <= middle <= high
        if name != "sharpen_amount":
            assert murmex.DEFAULT_SETTINGS[name] == middle
    np.testing.assert_array_equal(murmex.denoise(noisy, profile, threads=1),
                                  murmex.denoise(noisy, profile, threads=1, **murmex.DEFAULT_SETTINGS))


def test_settings_change_the_result(noisy, profile):
    base = murmex.denoise(noisy, profile, threads=1)
    for name, (low, middle, high) in murmex.SCALES.items():
        if name == "sharpen_radius":
            continue  # without sharpening the radius does nothing
        changed = murmex.denoise(noisy, profile, threads=1, **{name: high})
        assert not np.array_equal(changed, base), name


@pytest.mark.parametrize("image, error, text", [
    (np.zeros((10, 10, 3), np.int16), TypeError, "dtype int16 is not supported"),
    (np.zeros((10, 10, 3), np.float16), TypeError, "dtype float16 is not supported"),
    (np.zeros((10, 10, 3), bool), TypeError, "dtype bool is not supported"),
    (np.zeros((10, 10, 5), np.uint16), ValueError, "shape (10, 10, 5) is not an image"),
    (np.zeros((10,), np.uint16), ValueError, "shape (10,) is not an image"),
    (np.zeros((2, 10, 10, 3), np.uint16), ValueError, "is not an image"),
    (np.zeros((0, 10, 3), np.uint16), ValueError, "the image is empty"),
    ("image.tif", TypeError, "is not supported"),
])
def test_unsuitable_images_are_refused(profile, image, error, text):
    with pytest.raises(error, match=text.replace("(", r"\(").replace(")", r"\)")):
        murmex.denoise(image, profile)


def test_unsuitable_arguments_are_refused(noisy, profile):
    with pytest.raises(ValueError, match="lum_strength must be from 0 to 20"):
        murmex.denoise(noisy, profile, lum_strength=25)
    with pytest.raises(ValueError, match="sharpen_radius must be from 0.4 to 3"):
        murmex.denoise(noisy, profile, sharpen_radius=float("nan"))
    with pytest.raises(TypeError):
        murmex.denoise(noisy, profile, lum_strength="strong")
    with pytest.raises(TypeError):
        murmex.denoise(noisy, profile, 12)  # settings are keywords only
    with pytest.raises(TypeError):
        murmex.denoise(noisy, profile, luminance=12)
    with pytest.raises(ValueError, match="threads must be 0"):
        murmex.denoise(noisy, profile, threads=-1)
    with pytest.raises(TypeError, match="profile must be a murmex.Profile"):
        murmex.denoise(noisy, 42)
    with pytest.raises(TypeError, match="progress must be a callable"):
        murmex.denoise(noisy, profile, progress=3)
    with pytest.raises(TypeError, match="out must be a numpy array"):
        murmex.denoise(noisy, profile, out=[])
    with pytest.raises(TypeError, match="out has dtype uint8"):
        murmex.denoise(noisy, profile, out=np.zeros(noisy.shape, np.uint8))
    with pytest.raises(ValueError, match="out has shape"):
        murmex.denoise(noisy, profile, out=np.zeros((10, 10, 3), np.uint16))
    read_only = np.zeros_like(noisy)
    read_only.flags.writeable = False
    with pytest.raises(ValueError, match="out is read-only"):
        murmex.denoise(noisy, profile, out=read_only)


def test_a_missing_profile_file_raises_the_library_error(noisy, tmp_path):
    with pytest.raises(murmex.Error, match="cannot load profile .*missing.dnp"):
        murmex.denoise(noisy, tmp_path / "missing.dnp")


def test_refused_arguments_leave_out_untouched(noisy, profile):
    rgba = np.concatenate([noisy, images.alpha_ramp(*noisy.shape[:2], np.uint16)[..., None]], axis=2)
    out = np.zeros_like(rgba)
    for bad in (dict(threads=-1), dict(progress=3), dict(profile=42), dict(lum_strength=-1)):
        with pytest.raises((TypeError, ValueError)):
            murmex.denoise(rgba, **{"profile": profile, **bad}, out=out)
    assert not out.any()


def chosen_settings(stderr):
    """The settings that `murmex denoise --settings auto -v` reports choosing."""
    line = next(line for line in stderr.splitlines() if ": automatic settings: " in line)
    words = line.split(": automatic settings: ", 1)[1].split()
    return {name.replace("-", "_"): (value == "yes") if value in ("yes", "no") else float(value)
            for name, value in zip(words[::2], words[1::2])}


def test_auto_settings_match_the_program(noisy, profile, tmp_path, run_cli):
    profile.save(tmp_path / "p.dnp")
    tiff16.write(tmp_path / "in.tif", noisy)
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "file.tif", "--profile", tmp_path / "p.dnp",
            "--settings", "auto")
    # Without a profile both measure one from the image first.
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "measured.tif", "--settings", "auto")

    result = murmex.denoise(noisy, profile, settings="auto")

    np.testing.assert_array_equal(result, tiff16.read(tmp_path / "file.tif"))
    assert not np.array_equal(result, murmex.denoise(noisy, profile))
    np.testing.assert_array_equal(murmex.denoise(noisy, settings="auto"), tiff16.read(tmp_path / "measured.tif"))


def test_keywords_given_with_auto_replace_the_chosen_values(noisy, profile, tmp_path, run_cli):
    profile.save(tmp_path / "p.dnp")
    tiff16.write(tmp_path / "in.tif", noisy)
    chosen = chosen_settings(run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "auto.tif", "--profile",
                                     tmp_path / "p.dnp", "--settings", "auto", "-v").stderr)
    explicit = dict(lum_strength=3.5, low_frequency=not chosen["low_frequency"])
    assert all(chosen[name] != value for name, value in explicit.items())
    run_cli("denoise", tmp_path / "in.tif", "-o", tmp_path / "out.tif", "--profile", tmp_path / "p.dnp",
            "--settings", "auto", *cli_options(explicit))

    result = murmex.denoise(noisy, profile, settings="auto", **explicit)

    np.testing.assert_array_equal(result, tiff16.read(tmp_path / "out.tif"))
    # The values named are the explicit ones, the others the chosen ones.
    np.testing.assert_array_equal(result, murmex.denoise(noisy, profile, **dict(chosen, **explicit)))
    assert not np.array_equal(result, tiff16.read(tmp_path / "auto.tif"))
    # Without auto, a setting given as None is the default.
    np.testing.assert_array_equal(murmex.denoise(noisy, profile, lum_strength=None), murmex.denoise(noisy, profile))


@pytest.mark.parametrize("settings, error", [("fast", ValueError), ("AUTO", ValueError), (1, TypeError),
                                             ({"lum_strength": 3}, TypeError)])
def test_settings_other_than_auto_are_refused(noisy, profile, settings, error):
    with pytest.raises(error, match='settings must be "auto" or None'):
        murmex.denoise(noisy, profile, settings=settings)
