"""CPU of turning a 1080p H.264 key picture into a JPEG of 640x360 as the live view does it, a decoder a picture, against
one ffmpeg process that does the same to the same pictures; start-up taken off on both sides. Size and quality of the
JPEGs and the converting process's memory beside it.

    OCULORA_BUILD=build python3 bench/decoded/decoded_bench.py [rounds]
"""

import os
import re
import statistics
import struct
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BUILD  # noqa: E402
from hls import frames_of  # noqa: E402

BUDGET = 1.2
PICTURES, FEW = 200, 10
# About 90 KB a picture, as key pictures of a camera of 4 Mbit/s are.
MAKE = ("ffmpeg -v error -f lavfi -i testsrc2=size=1920x1080:rate=25:duration=8 -vf noise=alls=8:allf=t -c:v libx264"
        " -preset veryfast -g 1 -crf 25 -pix_fmt yuv420p -f h264 keys.h264")
# The quality of its scale is another: this one is as large as ours.
FFMPEG = ("ffmpeg -nostdin -v error -threads 1 -f h264 -i keys.h264 -frames:v {count} -filter_threads 1"
          " -vf scale=640:360 -pix_fmt yuvj420p -c:v mjpeg -threads 1 -q:v 4 -f {sink}")
PSNR = ("ffmpeg -nostdin -v info -f mjpeg -i {jpegs} -f h264 -i keys.h264 -lavfi"
        " [1]scale=640:360:flags=lanczos+accurate_rnd+full_chroma_int:out_range=full,format=yuvj420p[r];[0][r]psnr"
        " -f null -")


def cpu(command, work):
    """CPU seconds of a program from its start to its end, and what it printed."""
    process = subprocess.Popen(command, cwd=work, stdout=subprocess.PIPE, text=True)
    output = process.stdout.read()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = status
    if status != 0:
        sys.exit(f"{command} failed")
    return usage.ru_utime + usage.ru_stime, output


def ours(count, *jpegs, keys="keys"):
    return [os.path.join(BUILD, "bin", "bench_key_pictures"), keys, str(count), *jpegs]


def ffmpeg(count, sink="null -"):
    return FFMPEG.format(count=count, sink=sink).split()


def quality(jpegs, work):
    done = subprocess.run(PSNR.format(jpegs=jpegs).split(), cwd=work, capture_output=True, text=True, check=True)
    return float(re.search(r"average:([\d.]+)", done.stderr).group(1))


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 7
    with tempfile.TemporaryDirectory() as work:
        subprocess.run(MAKE.split(), cwd=work, check=True)
        units = frames_of(os.path.join(work, "keys.h264"))
        for name, some in (("keys", units), ("few", units[:FEW])):
            with open(os.path.join(work, name), "wb") as file:
                file.writelines(struct.pack("<I", len(unit)) + unit for unit in some)
        spent = {"ffmpeg": [], "ours": []}
        for _ in range(rounds):
            for name, command in (("ffmpeg", ffmpeg), ("ours", ours)):
                few, many = cpu(command(FEW), work)[0], cpu(command(PICTURES), work)[0]
                spent[name].append((many - few) / (PICTURES - FEW) * 1000)
        cpu(ours(PICTURES, "ours.mjpeg"), work)
        memory = cpu(ours(PICTURES, keys="few"), work)[1].split()[2]
        cpu(ffmpeg(PICTURES, "mjpeg ffmpeg.mjpeg"), work)
        print(f"{PICTURES} key pictures of {sum(map(len, units)) // len(units) // 1024} KB")
        print("         CPU a picture      JPEG   against the source")
        for name, figures in spent.items():
            size = os.path.getsize(os.path.join(work, name + ".mjpeg")) / PICTURES / 1024
            print(f"{name:8} {statistics.median(figures):10.2f} ms {size:6.1f} KB {quality(name + '.mjpeg', work):12.1f} dB")
    ratio = statistics.median(spent["ours"]) / statistics.median(spent["ffmpeg"])
    print(f"ratio    {ratio:10.2f}      (budget {BUDGET})\nproportional memory {memory} KB")
    return 0 if ratio <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
