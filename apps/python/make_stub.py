"""Writes the murmex module's type stubs from a template and the built
module itself, so that the stubs' settings keywords, defaults and docstrings
are the module's own.

usage: make_stub.py TEMPLATE OUTPUT  (with the built module importable)
"""

import re
import sys

import murmex


def docstring(path):
    """The docstring of murmex.<path> (the module for ""), without the
    signature line that pybind11 puts before a function's text."""
    target = murmex
    for part in filter(None, path.split(".")):
        target = getattr(target, part)
    doc = target.__doc__ or ""
    name = path.rsplit(".", 1)[-1]
    if name and doc.startswith(name + "("):
        doc = doc.split("\n", 1)[1] if "\n" in doc else ""
    return doc.strip()


def indented(text, indent):
    return "\n".join(indent + line.rstrip() if line.strip() else "" for line in text.split("\n")).lstrip()


def settings_parameters(indent):
    lines = []
    for name, value in murmex.DEFAULT_SETTINGS.items():
        kind = "bool" if isinstance(value, bool) else "float"
        lines.append(f"{name}: Optional[{kind}] = {value!r},")
    return ("\n" + indent).join(lines)


def main(template, output):
    with open(template) as f:
        text = f.read()

    def fill_doc(match):
        line_start = text.rfind("\n", 0, match.start()) + 1
        indent = re.match(r"[ ]*", text[line_start:]).group(0)
        return indented(docstring(match.group(1)), indent)

    text = re.sub(r"^([ ]*)@@(settings)@@", lambda m: m.group(1) + settings_parameters(m.group(1)), text,
                  flags=re.M)
    text = re.sub(r"@@doc:([A-Za-z_.]*)@@", fill_doc, text)
    with open(output, "w") as f:
        f.write(text)


if __name__ == "__main__":
    main(*sys.argv[1:])
