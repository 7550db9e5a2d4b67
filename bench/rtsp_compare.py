#!/usr/bin/env python3
"""Receives the same 1080p H.264 stream with rtsp_pull, a bare loop, ffmpeg and GStreamer and compares their cost.

    bench/rtsp_compare.py BUILD/bin [--repeats 5] [--pictures 1000] [--saturated 25000]

Prints the medians of the processor time (user and system, getrusage of each process) as a table, for interleaved TCP
one picture at a time and as fast as each client takes it, and the time from a client's start to its first picture.
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

PORT = 18554
URL = f"rtsp://127.0.0.1:{PORT}/live"


def run(command, expect_success=True):
    """Wall and processor seconds of one process, and what it wrote."""
    with tempfile.TemporaryFile() as out:
        start = time.monotonic()
        process = subprocess.Popen(command, stdout=out, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.monotonic() - start
        process.returncode = os.waitstatus_to_exitcode(status)
        if expect_success and process.returncode != 0:
            sys.exit(f"{command[0]} ended with {process.returncode}")
        out.seek(0)
        return wall, usage.ru_utime + usage.ru_stime, out.read()


class Feeder:
    def __init__(self, tools, clip, pictures, rate):
        self.process = subprocess.Popen([f"{tools}/rtsp_feeder", clip, str(PORT), str(pictures), str(rate)],
                                        stdout=subprocess.PIPE)

    def __enter__(self):
        if not self.process.stdout.readline():
            sys.exit("rtsp_feeder does not start")

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


def make_clip(path):
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=1920x1080:r=25", "-t", "8", "-c:v",
                    "libx264", "-preset", "veryfast", "-b:v", "4M", "-maxrate", "4M", "-bufsize", "4M", "-g", "25",
                    "-bf", "0", "-x264-params", "slices=1", "-pix_fmt", "yuv420p", "-f", "h264", "-y", path],
                   check=True)


def clients(tools):
    # GStreamer reports the end of the connection as an error after the last picture.
    return {
        "bare loop": ([f"{tools}/bare_pull", str(PORT)], True),
        "rtsp_pull": ([f"{tools}/rtsp_pull", URL], True),
        "ffmpeg": (["ffmpeg", "-v", "error", "-rtsp_transport", "tcp", "-i", URL, "-map", "0:v", "-c", "copy", "-f",
                    "null", "-"], True),
        "GStreamer": (["gst-launch-1.0", "-q", "rtspsrc", f"location={URL}", "protocols=tcp", "latency=0", "!",
                       "rtph264depay", "!", "fakesink", "sync=false"], False),
    }


def first_picture(tools):
    return {
        "rtsp_pull --first": [f"{tools}/rtsp_pull", URL, "--first"],
        "GStreamer": ["gst-launch-1.0", "-q", "rtspsrc", f"location={URL}", "protocols=tcp", "latency=0", "!",
                      "rtph264depay", "!", "h264parse", "!", "video/x-h264,alignment=au", "!", "fakesink", "sync=false",
                      "num-buffers=1"],
    }


def counts(text):
    return dict((key, int(value)) for key, value in (pair.split("=") for pair in text.decode().split()))


def compare(tools, clip, repeats, pictures, rate):
    """Medians of processor seconds by client; ours and the bare loop must have received everything."""
    times = {name: [] for name in clients(tools)}
    received = {}
    with Feeder(tools, clip, pictures, rate):
        for _ in range(repeats):
            for name, (command, succeeds) in clients(tools).items():
                _, cpu, out = run(command, succeeds)
                times[name].append(cpu)
                if out:
                    received[name] = counts(out)
                    if received[name]["pictures"] != pictures:
                        sys.exit(f"{name} received {received[name]['pictures']} of {pictures} pictures")
    return {name: statistics.median(values) for name, values in times.items()}, received["rtsp_pull"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tools", help="folder with rtsp_pull, bare_pull and rtsp_feeder")
    parser.add_argument("--repeats", type=int, default=5)
    parser.add_argument("--pictures", type=int, default=1000)
    parser.add_argument("--rate", type=int, default=250, help="pictures a second, each in one burst")
    parser.add_argument("--saturated", type=int, default=25000, help="pictures as fast as they are taken")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as folder:
        clip = os.path.join(folder, "clip.h264")
        make_clip(clip)
        paced, got = compare(options.tools, clip, options.repeats, options.pictures, options.rate)
        full, sent = compare(options.tools, clip, options.repeats, options.saturated, 0)
        gigabytes = sent["bytes"] / 1e9
        print(f"{got['pictures']} pictures, {got['packets']} packets, {got['bytes']} bytes at {options.rate} a second; "
              f"saturated: {gigabytes:.2f} GB; medians of {options.repeats}")
        print(f"{'':12}{'ms per 1000 pictures':>22}{'to bare':>9}{'s per GB':>12}{'to bare':>9}")
        for name in paced:
            print(f"{name:12}{paced[name] * 1e6 / options.pictures:22.1f}{paced[name] / paced['bare loop']:9.2f}"
                  f"{full[name] / gigabytes:12.3f}{full[name] / full['bare loop']:9.2f}")
        with Feeder(options.tools, clip, 1000, 25):
            for name, command in first_picture(options.tools).items():
                walls = [run(command)[0] for _ in range(options.repeats)]
                print(f"first picture, {name}: {statistics.median(walls) * 1000:.1f} ms")


if __name__ == "__main__":
    main()
