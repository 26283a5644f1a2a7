#!/usr/bin/env python3
"""Checks that each folder of src/Vistrel includes only from itself and the layers below it.

The order is the one docs/architecture.md gives; a folder that is not listed is an error too, so a
new folder gets its place in the order before it gets code.
"""
import pathlib
import re
import sys

LAYERS = ["Core", "Config", "Api", "Screen", "Widgets", "Quick", "Network", "Communication", "Monitoring",
          "Session", "CoBrowsing", "WebChat", "User", "Platform", "Facade"]
# Generated or non-code folders.
IGNORED = {"resources"}

root = pathlib.Path(__file__).resolve().parent.parent / "src" / "Vistrel"
include = re.compile(r'^\s*#\s*include\s+"([A-Za-z]+)/')
faults = []
for path in sorted(root.rglob("*")):
    if path.suffix not in {".h", ".cpp"}:
        continue
    folder = path.relative_to(root).parts[0]
    if folder in IGNORED:
        continue
    if folder not in LAYERS:
        faults.append(f"{path.relative_to(root)}: folder {folder} has no place in the layer order")
        continue
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = include.match(line)
        if match and match.group(1) in LAYERS and LAYERS.index(match.group(1)) > LAYERS.index(folder):
            faults.append(f"{path.relative_to(root)}:{number}: {folder} includes the higher layer "
                          f"{match.group(1)}")
for fault in faults:
    print(fault)
print(f"layers: {len(faults)} upward includes" if faults else "layers: every include goes down")
sys.exit(1 if faults else 0)
