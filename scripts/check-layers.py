#!/usr/bin/env python3
"""Checks that the include graph of src/, tools/ and examples/ is a clean stack.

Every folder may include from the folders below it and from itself, never
from above or beside. Include paths are flat (each folder is on the include
path), so a quoted include is resolved by its file name. Headers made by the
build (export macro, version) belong to the ground floor.

Usage: check-layers.py [REPO_ROOT]; exit 0 when clean, 1 with one line per
offending include.
"""
import os
import re
import sys

# folder -> folders it may use (besides itself)
ALLOWED = {
    "src/core": set(),
    "src/protocol": {"src/core"},
    "src/audio_codec/gsm": {"src/core"},
    "src/persistence": {"src/core", "src/protocol"},
    "src/locallink": {"src/core", "src/protocol"},
    "src/chat": {"src/core", "src/protocol"},
    "src/download": {"src/core", "src/protocol", "src/audio_codec/gsm"},
}
ALLOWED["src/client"] = set(ALLOWED) | {"src/core"}
ALLOWED["src/extras"] = ALLOWED["src/client"] | {"src/client"}
# The programs stand on the whole library; never the other way round.
TOOLS = "tools"
# The example applications stand on the library as an application outside
# the tree would: no private header of it. They may share the tools' helpers.
EXAMPLES = "examples"
GENERATED = {"telvix_export.h": "src/core", "telvix_version.h": "src/core"}
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
SOURCE_ENDINGS = (".h", ".cpp")


def folder_of(path):
    """The layer folder a file belongs to: the longest ALLOWED key that prefixes it."""
    best = None
    for layer in ALLOWED:
        if path == layer or path.startswith(layer + "/"):
            if best is None or len(layer) > len(best):
                best = layer
    for top in (TOOLS, EXAMPLES):
        if best is None and (path == top or path.startswith(top + "/")):
            best = top
    return best


def sources(root, top):
    for base, _, names in os.walk(os.path.join(root, top)):
        for name in sorted(names):
            if name.endswith(SOURCE_ENDINGS):
                yield os.path.relpath(os.path.join(base, name), root)


def main():
    root = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), ".."))
    owner = dict(GENERATED)
    for path in sources(root, "src"):
        owner.setdefault(os.path.basename(path), folder_of(os.path.dirname(path)))
    for top in (TOOLS, EXAMPLES):
        for path in sources(root, top):
            owner.setdefault(os.path.basename(path), top)

    faults = []
    checked = 0
    for top in ("src", TOOLS, EXAMPLES):
        for path in sources(root, top):
            here = folder_of(os.path.dirname(path))
            if here is None:
                faults.append(f"{path}: folder has no place in the stack")
                continue
            with open(os.path.join(root, path), encoding="utf-8", errors="replace") as f:
                for number, line in enumerate(f, 1):
                    m = INCLUDE.match(line)
                    if not m:
                        continue
                    target = owner.get(os.path.basename(m.group(1)))
                    checked += 1
                    if here == EXAMPLES and target is not None and target.startswith("src/") \
                            and m.group(1).endswith("_p.h"):
                        faults.append(f"{path}:{number}: an example includes the private header {m.group(1)}")
                        continue
                    if target is None or target == here:
                        continue
                    if here == TOOLS:
                        continue
                    if here == EXAMPLES:
                        continue
                    if target == TOOLS or target not in ALLOWED[here]:
                        faults.append(f"{path}:{number}: {here} includes {m.group(1)} from {target}")
    for fault in faults:
        print(fault)
    print(f"check-layers: {checked} includes read, {len(faults)} against the stack")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
