"""Fails if a file includes a higher layer, or itself through others. A source and its header count as one file."""
import pathlib
import re
import sys

LAYERS = [["Foundation"], ["Threads and clock"], ["Dispatch"], ["Logging", "Configuration", "Network"],
          ["Transport"], ["Client"], ["Application", "Tool"]]
RANKS = {name: rank for rank, names in enumerate(LAYERS) for name in names}
FOLDERS = ["common", "client", "app", "runtime", "tools/syslogctl"]

faults, ranks, includes = [], {}, {}
for path in sorted(path for folder in FOLDERS for path in pathlib.Path(folder).glob("*.*")):
    if path.suffix not in (".h", ".cpp"):
        continue
    text, name = path.read_text(), str(path.with_suffix(""))
    layer = re.match(r"// (.+?) layer: ", text)
    if layer and layer.group(1) in RANKS:
        ranks[name] = RANKS[layer.group(1)]
    includes.setdefault(name, set()).update(re.findall(r'^#include "(.+)\.h"', text, re.MULTILINE))
for name, wanted in includes.items():
    wanted.discard(name)
    if name not in ranks:
        faults.append(f"{name}: the first line names no layer")
    faults += [f"{name} includes {other}, which is higher" for other in sorted(wanted)
               if ranks.get(other, len(LAYERS)) > ranks.get(name, len(LAYERS))]


def walk(name, road):
    if name in road:
        faults.append("circle: " + " -> ".join(road[road.index(name):] + [name]))
    elif name in includes:
        for other in sorted(includes.pop(name)):
            walk(other, road + [name])


for start in list(includes):
    walk(start, [])
sys.exit("\n".join(faults) or 0)
