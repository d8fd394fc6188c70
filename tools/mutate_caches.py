#!/usr/bin/env python3
# Copyright 2026 The Nimbra Authors
# SPDX-License-Identifier: Apache-2.0
"""Damages cache files in many ways, gives each one to the program and counts what comes of it.

    tools/mutate_caches.py PROGRAM COUNT SEED FILE... [-- ARGUMENT...]

The arguments (default: info) stand before the file's name. Each file in turn is damaged by a few
changes: bytes, bits, telling numbers, pieces cut out, doubled or moved, an end cut off. Counted are
the exit codes, ends by a signal and runs of more than 10 seconds; files of the latter two are kept
in the working folder. The code is 1 when there were any.
"""
import collections
import os
import random
import struct
import subprocess
import sys
import tempfile

NUMBERS = [0, 1, 2, 0x7F, 0xFF, 0x7FFF, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x40000000,
           0x7FFFFFFFFFFFFFFF, 1 << 63, (1 << 64) - 1, 1 << 32, 4096]
SECONDS = 10


def mutated(data, rnd):
    data = bytearray(data)
    for _ in range(rnd.randint(1, 6)):
        if len(data) < 64:
            break
        # Half of the changes go to the head, where the structure is dense.
        reach = len(data) if rnd.random() < 0.5 else min(len(data), 4096)
        at = rnd.randrange(reach - 8)
        kind = rnd.randrange(7)
        if kind == 0:
            data[at] = rnd.randrange(256)
        elif kind == 1:
            data[at] ^= 1 << rnd.randrange(8)
        elif kind in (2, 3):
            size = rnd.choice((4, 8))
            data[at:at + size] = struct.pack("<Q", rnd.choice(NUMBERS))[:size]
        elif kind == 4:
            del data[at:at + rnd.randint(1, 64)]
        else:
            start = rnd.randrange(len(data))
            piece = data[start:start + rnd.randint(1, 64)]
            end = at if kind == 5 else at + len(piece)
            data[at:end] = piece
    if rnd.randrange(20) == 0:
        del data[rnd.randrange(max(len(data), 1)):]
    return bytes(data)


def run(command):
    try:
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=SECONDS)
    except subprocess.TimeoutExpired:
        return "hang"
    return "signal %d" % -done.returncode if done.returncode < 0 else "exit %d" % done.returncode


def main():
    words = sys.argv[1:]
    rest = ["info"]
    if "--" in words:
        cut = words.index("--")
        words, rest = words[:cut], words[cut + 1:]
    if len(words) < 4:
        sys.exit(__doc__)
    program, count, seed, files = words[0], int(words[1]), int(words[2]), words[3:]
    rnd = random.Random(seed)
    answers = collections.Counter()
    with tempfile.TemporaryDirectory() as folder:
        for i in range(count):
            source = files[i % len(files)]
            with open(source, "rb") as f:
                data = mutated(f.read(), rnd)
            path = os.path.join(folder, "damaged" + os.path.splitext(source)[1])
            with open(path, "wb") as f:
                f.write(data)
            answer = run([program, *rest, path])
            answers[answer] += 1
            if not answer.startswith("exit"):
                kept = "found_%d_%d_%s" % (seed, i, os.path.basename(source))
                os.replace(path, kept)
                print("%s: %s" % (answer, kept), flush=True)
    print(", ".join("%s: %d" % a for a in sorted(answers.items())))
    sys.exit(any(not a.startswith("exit") for a in answers))


if __name__ == "__main__":
    main()
