"""What ships with the module: the README's example, the type stubs and an
installation staged from the build tree."""

import ast
import os
import pathlib
import re
import subprocess
import sys

import murmex


def readme_example():
    readme = pathlib.Path(os.environ["MURMEX_SOURCE_DIR"], "README.md").read_text()
    section = readme.split("\n## From Python\n", 1)[1].split("\n## ", 1)[0]
    return re.search(r"```python\n(.*?)```", section, re.S).group(1)


def test_the_readme_example_runs_as_written(tmp_path, monkeypatch):
    code = readme_example()
    assert len([line for line in code.splitlines() if line.strip()]) == 5
    monkeypatch.chdir(tmp_path)
    scope = {}
    exec(compile(code, "README.md", "exec"), scope)
    noisy, clean = scope["noisy"], scope["clean"]
    assert clean.shape == noisy.shape and clean.dtype == noisy.dtype
    assert clean.std() < noisy.std() / 2
    assert murmex.Profile.load(tmp_path / "camera.dnp").samples.tobytes() == scope["profile"].samples.tobytes()


def stub_tree():
    path = pathlib.Path(murmex.__file__).with_name("murmex.pyi")
    return ast.parse(path.read_text())


def stub_definition(tree, name, kind=ast.FunctionDef):
    return next(node for node in tree.body if isinstance(node, kind) and node.name == name)


def test_the_stub_declares_denoise_as_the_module_does():
    denoise = stub_definition(stub_tree(), "denoise")
    assert [a.arg for a in denoise.args.args] == ["image", "profile"]
    keywords = [a.arg for a in denoise.args.kwonlyargs]
    assert keywords == ["settings"] + list(murmex.DEFAULT_SETTINGS) + ["threads", "turbo", "progress", "out"]
    defaults = dict(zip(keywords, (ast.literal_eval(d) for d in denoise.args.kw_defaults)))
    for name, value in murmex.DEFAULT_SETTINGS.items():
        assert defaults[name] == value and type(defaults[name]) is type(value), name
    # The module's own signature line lists the same keywords.
    signature = murmex.denoise.__doc__.split("\n", 1)[0]
    assert re.findall(r"(\w+): ", signature.split("*,", 1)[1]) == keywords
    assert "lum_strength: luminance noise reduction strength, 0 to 20" in ast.get_docstring(denoise)
    assert 'settings: None, or "auto" to choose the settings' in ast.get_docstring(denoise)
    measure = stub_definition(stub_definition(stub_tree(), "Profile", ast.ClassDef), "measure")
    assert [a.arg for a in measure.args.kwonlyargs] == ["settings", "progress"]


def test_the_stub_covers_every_public_name():
    tree = stub_tree()
    declared = {node.name for node in tree.body if isinstance(node, (ast.FunctionDef, ast.ClassDef))}
    declared |= {node.target.id for node in tree.body if isinstance(node, ast.AnnAssign)}
    assert {name for name in dir(murmex) if not name.startswith("_")} <= declared
    profile = stub_definition(tree, "Profile", ast.ClassDef)
    members = {node.name for node in profile.body if isinstance(node, ast.FunctionDef)}
    assert {name for name in dir(murmex.Profile) if not name.startswith("_")} <= members


def test_an_installed_module_imports_and_runs(tmp_path):
    stage = tmp_path / "stage"
    subprocess.run([os.environ.get("CMAKE_COMMAND", "cmake"), "--install", os.environ["MURMEX_BUILD_DIR"],
                    "--component", "python", "--prefix", str(stage)], check=True, capture_output=True)
    modules = list(stage.glob("lib/python3*/*-packages/murmex*.so"))
    assert len(modules) == 1
    assert modules[0].with_name("murmex.pyi").is_file()
    env = dict(os.environ, PYTHONPATH=str(modules[0].parent))
    script = (
        "import murmex, numpy as np\n"
        "image = np.random.default_rng(2).normal(0.5, 0.05, (96, 128, 3)).clip(0, 1)\n"
        "print(murmex.__file__)\n"
        "print(murmex.denoise(image, murmex.Profile.measure(image), threads=1).shape)\n"
        "print([l.split()[-1] for l in open('/proc/self/maps') if 'libmurmex.so' in l][0])\n")
    done = subprocess.run([sys.executable, "-c", script], env=env, cwd=tmp_path, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    module_file, shape, library = done.stdout.splitlines()
    assert pathlib.Path(module_file) == modules[0]
    assert shape == "(96, 128, 3)"
    assert pathlib.Path(library).is_relative_to(stage)
