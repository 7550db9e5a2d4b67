#!/usr/bin/env python3
"""clang-tidy over our sources, as many at once as there are cores. Usage: cmake/tidy.py BUILD_DIR [FILE...]

A file that was clean is not read again while nothing that it is made of has changed: what ninja knows of its includes, its
command, the checks and clang-tidy itself make a key, kept in the user's cache folder."""
import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
build = pathlib.Path(sys.argv[1]).resolve()
stamps = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "onvifcam-tidy"
stamps.mkdir(parents=True, exist_ok=True)


def output(*command):
    return subprocess.run(command, cwd=root, check=True, capture_output=True, text=True).stdout


@functools.cache
def digest(path):
    return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()


def dependencies():
    """What each object was made of, as of its last build; none for one that is older than its sources."""
    found = {}
    for block in output("ninja", "-C", str(build), "-t", "deps").split("\n\n"):
        head, *paths = block.splitlines() or [""]
        if head.endswith("(VALID)"):
            found[head.split(": #deps")[0]] = [str((build / path.strip()).resolve()) for path in paths]
    return found


def key_of(entry, made_of):
    key = hashlib.sha256(version.encode())
    key.update(entry["command"].replace(str(build), "BUILD").replace(str(root), "ROOT").encode())
    for path in sorted(made_of):
        if not pathlib.Path(path).exists():
            return None
        key.update((path.replace(str(root), "ROOT") + digest(path)).encode())
    for checks in sorted(root.glob("**/.clang-tidy")):
        key.update(digest(str(checks)).encode())
    return key.hexdigest()


def lint(name):
    entry = commands[str(root / name)]
    made_of = deps.get(re.search(r" -o (\S+) ", entry["command"])[1])
    key = key_of(entry, made_of) if made_of else None
    stamp = stamps / key if key else None
    if stamp and stamp.exists():
        stamp.touch()
        return name, "known"
    run = subprocess.run(["clang-tidy", "--quiet", "-p", str(build), name], cwd=root, capture_output=True, text=True)
    if run.returncode == 0 and not run.stdout.strip():
        if stamp:
            stamp.touch()
        return name, "clean"
    return name, run.stdout + run.stderr


version = output("clang-tidy", "--version")
commands = {entry["file"]: entry for entry in json.loads((build / "compile_commands.json").read_text())}
files = sys.argv[2:] or [name for name in output("git", "ls-files", "*.cpp", ":!bench", ":!tests", ":!fuzz").split() if str(root / name) in commands]
deps = dependencies()
results = {}
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    for file, result in pool.map(lint, files):
        results[file] = result
        if result not in ("known", "clean"):
            print(result, flush=True)
bad = [file for file, result in results.items() if result not in ("known", "clean")]
known = sum(result == "known" for result in results.values())
print(f"clang-tidy: {len(results)} files, {known} of them known to be clean, {len(bad)} with findings" + "".join(f"\n  {f}" for f in bad))
sys.exit(1 if bad or not results else 0)
