#!/usr/bin/env python3
"""Fails when a header is longer than 250 lines, or when an include goes against the layers: plugin -> camera -> {media, audio, alarm} -> {onvif, rtsp} -> host ->
util; controller meets only host and util; sim meets nothing of ours."""
import pathlib
import re
import sys

BELOW = {
    "util": set(),
    "host": {"util"},
    "onvif": {"util", "host"},
    "rtsp": {"util", "host"},
    "media": {"onvif", "rtsp", "util", "host"},
    "audio": {"onvif", "rtsp", "util", "host"},
    "alarm": {"onvif", "rtsp", "util", "host"},
    "camera": {"media", "audio", "alarm", "onvif", "rtsp", "util", "host"},
    "plugin": {"camera", "onvif", "util", "host"},
    "controller": {"host", "util"},
    "demo": {"controller", "host", "util"},
    "sim": set(),
}
LONGEST_HEADER = 250
LONGER_TODAY = {"camera/ONVIFCam.h": 355}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"/]+)/')

root = pathlib.Path(__file__).resolve().parent.parent
files = bad = 0
for room, below in BELOW.items():
    for path in sorted((root / room).rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        files += 1
        for number, line in enumerate(path.read_text().splitlines(), 1):
            match = INCLUDE.match(line)
            if match and match[1] != room and match[1] not in below:
                print(f"{path.relative_to(root)}:{number}: {room} must not include {match[1]}/")
                bad += 1
headers = [path for path in root.glob("*/**/*.h") if path.relative_to(root).parts[0] in {*BELOW, "tests", "bench", "fuzz"}]
for path in sorted(headers):
    name = str(path.relative_to(root))
    lines = len(path.read_text().splitlines())
    if lines > LONGER_TODAY.get(name, LONGEST_HEADER):
        print(f"{name}: {lines} lines, a header may have {LONGEST_HEADER}")
        bad += 1
print(f"checked the length of {len(headers)} headers")
print(f"checked the includes of {files} files: {bad} findings")
sys.exit(1 if bad or files == 0 or not headers else 0)
