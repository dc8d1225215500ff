"""Reads what the library runs when it is loaded.

    load_order.py LIBRARY

One initialiser a module, in the order of the modules' names, and nothing else; each calls
`vomoModuleIs` once and otherwise only makes statics of its file. A module's tables lie where the
loader forbids writing.
"""
import re
import struct
import subprocess
import sys

MODULES = ("BitMapperTypes McastGroup McastTunnelTypes McastVplsPwTypes McastVxlanTypes Mfib MfibBriskTypes "
           "MfibTypes MrouteLibAttr PortVlan PortVlanSet PrefixMroute").split()
# Streams, the text "ns-" of those that name VRFs, and what undoes both and the registration.
ALLOWED = re.compile(r"ios_base::Init|__cxa_atexit|basic_string|Vomo::String")


def require(condition, text):
    if not condition:
        sys.exit(f"load order: {text}")


def tool(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


def init_array(library):
    """Addresses of the initialisers, in the order in which the loader calls them."""
    sections = tool("readelf", "-SW", library)
    address, size = (int(x, 16) for x in re.search(
        r"\.init_array\s+INIT_ARRAY\s+(\w+)\s+\w+\s+(\w+)", sections).groups())
    targets = {int(at, 16): int(to, 16) for at, to in re.findall(
        r"^(\w{16})\s+\w+\s+R_X86_64_RELATIVE\s+(\w+)$", tool("readelf", "-rW", library), re.M)}
    return [targets[at] for at in range(address, address + size, struct.calcsize("P"))]


def calls(library, name):
    text = tool("objdump", "-d", "-C", "--no-show-raw-insn", f"--disassemble={name}", library)
    return re.findall(r"(?:call|jmp)\s+[0-9a-f]+ <(.*?)(?:\+0x[0-9a-f]+)?>$", text, re.M)


def main(library):
    names = {}
    for line in tool("nm", library).splitlines():
        fields = line.split()
        if len(fields) == 3 and fields[1] in "tT":
            names[int(fields[0], 16)] = fields[2]
    found = [names.get(address, hex(address)) for address in init_array(library)]
    own = [name for name in found if name != "frame_dummy"]  # the compiler's start-up
    require(own == [f"_GLOBAL__sub_I_{module}.cpp" for module in MODULES], f"the initialisers are {own}")
    for name in own:
        callees = [callee for callee in calls(library, name) if not callee.startswith(name)]
        require(sum("vomoModuleIs" in callee for callee in callees) == 1, f"{name} calls {callees}")
        others = [callee for callee in callees if "vomoModuleIs" not in callee and not ALLOWED.search(callee)]
        require(not others, f"{name} calls {others}")
    symbols = tool("objdump", "-t", library)
    for module in MODULES:
        place = re.search(rf"\s(\.\S+)\s+(\w+)\s+_{module}_\w{{16}}_vomoModule$", symbols, re.M)
        require(place is not None, f"no record of {module}")
        require(place.group(1) == ".data.rel.ro" and int(place.group(2), 16) == 64,
                f"the record of {module} lies in {place.group(1)}, of size 0x{place.group(2)}")
    print(f"{len(own)} initialisers, in order")


main(sys.argv[1])
