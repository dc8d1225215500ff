"""Reads the includes and fails on one that does not point down the layers.

    6   tools tests bench fuzz examples
    5   Mroute
    4   VomoBrisk
    3   Kelpie Bridging L3 Interface Tunnel Cell   |   Brisk -> BriskCore
    2   Vomo                                       |   Yarrow -> Wren
    1                                              |   SharedMem
    0   Dunlin Tumbrel Gantry Lumenlog

Types (left) know nothing of tables, tables (right) nothing of entities. The libraries use the
standard library, the system and {fmt}; other libraries belong to layer 6.
"""
import pathlib
import re
import sys
import tempfile

BASE = {"Dunlin", "Tumbrel", "Gantry", "Lumenlog"}
VALUES = {"Kelpie", "Bridging", "L3", "Interface", "Tunnel", "Cell"}
LEFT = BASE | {"Vomo"} | VALUES
RIGHT = BASE | {"SharedMem", "Yarrow", "Wren", "Brisk", "BriskCore"}

# What a directory may include, besides itself.
MAY_INCLUDE = {name: BASE for name in BASE}
MAY_INCLUDE |= {
    "Vomo": BASE,
    "SharedMem": BASE,
    "Wren": BASE | {"SharedMem"},
    "Yarrow": BASE | {"SharedMem", "Wren"},
    "BriskCore": BASE | {"SharedMem", "Yarrow", "Wren"},
    "Brisk": RIGHT,
    "VomoBrisk": LEFT | RIGHT,
    "Mroute": LEFT | RIGHT | {"VomoBrisk"},
}
MAY_INCLUDE |= {name: BASE | {"Vomo"} | VALUES for name in VALUES}

INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]')
FOREIGN = re.compile(r"^(CLI|nlohmann|libmnl|gtest|gmock|benchmark)/")


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        found = INCLUDE.match(line)
        if found:
            yield number, found.group(1) == '"', found.group(2)


def complaints(root):
    """Yields a sentence for each include that breaks a rule, and fills `edges` for the cycles."""
    source = root / "src"
    edges = {}
    for path in sorted(source.rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        home = path.relative_to(source).parts[0]
        if home not in MAY_INCLUDE:
            yield f"{path.relative_to(root)}: directory {home} has no place in the layers"
            continue
        for number, own, name in includes(path):
            place = f"{path.relative_to(root)}:{number}"
            target = name.split("/")[0]
            if FOREIGN.match(name):
                yield f"{place}: {name} belongs to tools and tests, not to the libraries"
            if not own or target == home:
                continue
            if "/" not in name:
                yield f'{place}: name the directory in "{name}"'
            elif target not in MAY_INCLUDE[home]:
                yield f"{place}: {home} may not include {name}"
            elif not (source / name).exists():
                yield f"{place}: no such header: {name}"
            else:
                edges.setdefault(home, {}).setdefault(target, place)
    for first in sorted(edges):  # directories of one layer may use each other, in one direction
        for second, place in edges[first].items():
            if first < second and first in edges.get(second, {}):
                yield f"{place}: {first} and {second} include each other ({edges[second][first]})"


def self_test():
    """Plants one breach of each rule in a tree of its own and asks for one complaint about each."""
    planted = {
        "src/Brisk/A.cpp": '#include "Vomo/Entity.h"\n',
        "src/Vomo/Entity.h": '#include "SharedMem/Atomics.h"\n',
        "src/SharedMem/Atomics.h": '#include "Dunlin/Types.h"\n#include "Brisk/A.h"\n',
        "src/Dunlin/Types.h": '#include <nlohmann/json.hpp>\n#include "Gantry/G.h"\n',
        "src/Gantry/G.h": '#include "Dunlin/Types.h"\n',
        "src/Elsewhere/B.h": "",
    }
    with tempfile.TemporaryDirectory() as directory:
        for name, text in planted.items():
            path = pathlib.Path(directory, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        found = list(complaints(pathlib.Path(directory)))
    for word in ("Brisk may not include Vomo", "Vomo may not include SharedMem",
                 "SharedMem may not include Brisk", "nlohmann", "include each other", "Elsewhere"):
        if not any(word in line for line in found):
            sys.exit(f"the check misses: {word}\n" + "\n".join(found))
    if len(found) != 6:
        sys.exit("more complaints than breaches:\n" + "\n".join(found))


if sys.argv[1:] == ["--self-test"]:
    self_test()
else:
    found = list(complaints(pathlib.Path(sys.argv[1])))
    print("\n".join(found) or "every include points down")
    sys.exit(bool(found))
