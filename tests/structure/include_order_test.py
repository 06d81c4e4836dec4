"""Includes run downwards: a file of src/, local/, remote/ or include/ includes only what stands on its own floor or below it.

Usage: include_order_test.py SOURCE_FOLDER
"""
import pathlib
import re
import sys

# From the ground up: a room, and the headers of include/ that declare what it offers.
CONTRACT = "kcitypes kcirecords kcitable kciremote"
SUPPORT = [
    ("src/host/base", "hostatomic hostenv hostmutex hostthread utlpagesize"),
    ("src/err/system", "syserrcodes syserror unixerr"),
    ("src/host/signals", "hostsignal utlexit"),
    ("src/utl", "hash ksdstring utl utlheap"),
    ("src/host/time", "hosttime"),
    ("src/host/names", "hostfile hostuser utlhost"),
    ("src/err/messages", "errmsg errutl vermsg"),
    ("src/host/report", "hostdebug"),
    ("src/host/faults", "hostfault hostunwind"),
    ("src/host/processes", "hostlimits hostprocess"),
    ("src/host", "hostunix service"),
]
BRIDGE = [("src/kcirtl", "dynlib kcirtl"), ("src/bridge", "")]
# Natives over the support layer: they alone stand in both houses.
JAVA_SUPPORT = SUPPORT + BRIDGE + [("src/javasupport", "")]
LOCAL = [("local", ""), ("local/store", ""), ("local/language", ""), ("local/kci", "")]
# The two ends share how a client library's file is examined and opened; they do not know each other.
WIRE = BRIDGE[:1] + [("remote/channel", ""), ("remote/wire", "")]
HOUSES = [JAVA_SUPPORT, WIRE + [("remote/near", "")], WIRE + [("remote/host", "")], SUPPORT, BRIDGE, LOCAL]
ROOMS_WITH_JNI = ["src/bridge", "src/javasupport"]

HOUSE_OF_ROOM = {room: [name for name, _ in house] for house in HOUSES for room, _ in house}
ROOM_OF_HEADER = {f"{name}.h": room for house in HOUSES for room, names in house for name in names.split()}
CONTRACT_HEADERS = {f"{name}.h" for name in CONTRACT.split()}

# What must be found, or this test finds nothing.
PLANTED = [
    ("src/utl", "hostdebug.h"),
    ("src/host/base", "host/report/reporttext.h"),
    ("src/host/faults", "jni.h"),
    ("src/bridge", "hostmutex.h"),
    ("local/store", "language/text.h"),
    ("remote/wire", "near/near.h"),
    ("remote/host", "near/near.h"),
]


def fault(room, included):
    """What is wrong with an include of a room's file, or None."""
    if included == "jni.h":
        return None if room in ROOMS_WITH_JNI else "only natives know the virtual machine"
    if included in CONTRACT_HEADERS:
        return None
    top = "src" if included.startswith("kcirtl/") else room.split("/")[0]
    target = ROOM_OF_HEADER.get(included) or str(pathlib.PurePosixPath(top, included).parent)
    order = HOUSE_OF_ROOM[room]
    if target not in order:
        return f"{target} is no floor below {room}"
    return f"{target} stands above {room}" if order.index(target) > order.index(room) else None


def includes_of(source):
    found = re.findall(r'^\s*#\s*include\s*(?:"([^"]+)"|<(jni\.h)>)', source.read_text(), re.MULTILINE)
    return [quoted or angled for quoted, angled in found]


def main(top):
    faults = [f"planted {included} in {room} was not found" for room, included in PLANTED if not fault(room, included)]
    for source in sorted(path for folder in ("src", "local", "remote", "include") for path in (top / folder).rglob("*")):
        if source.suffix not in (".h", ".cpp", ".inc"):
            continue
        name = source.relative_to(top)
        if name.name in CONTRACT_HEADERS:
            continue
        room = ROOM_OF_HEADER.get(name.name) if name.parts[0] == "include" else str(name.parent)
        if room not in HOUSE_OF_ROOM:
            faults.append(f"{name}: has no room in this test's order")
            continue
        for included in includes_of(source):
            beside = name.parts[0] != "include" and (source.parent / included).exists()
            wrong = None if beside else fault(room, included)
            if wrong:
                faults.append(f'{name}: includes "{included}", but {wrong}')
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
