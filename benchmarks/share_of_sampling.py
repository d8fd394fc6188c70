#!/usr/bin/env python3
# Copyright 2026 The Nimbra Authors
# SPDX-License-Identifier: Apache-2.0
"""Which share of a command's time goes into reading grids and tables.

usage: share_of_sampling.py [--instructions] build/release/bin/nimbra render SCENE -o PICTURE -t 1 -q

Needs linux-perf and llvm, and line tables in the program (-DCMAKE_CXX_FLAGS=-g1). Each sample of
perf counts by all the source files that its instruction was inlined from: as a look-up where one of
them is of the samplers, the tables or the light cache. Time that an instruction waits for a look-up's
result counts where the instruction stands, mostly in the loops around. With --instructions these are
counted in place of time, by callgrind (valgrind), without those of the dynamic linker.
"""
import collections
import functools
import os
import re
import subprocess
import sys
import tempfile

LOOKUPS = {
    "fast_exp.h", "grid_samplers.cpp", "light_cache.cpp", "lut_holder.h", "opacity_lanes.h",
    "sample_voxel.cpp", "sampler_lanes.h", "sampler_taps.h", "shading_lookup.h",
    "shading_tables.cpp", "tree_access.cpp", "tree_access.h", "tree_cursor.h", "voxel_lookup.h"}
OWN = re.compile(r"/(nimbra|[a-z0-9_]*tessra[a-z0-9_]*\.so)$")


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=True, **options).stdout


def read_samples(data):
    """Mapped files as (start, length, offset, file), and samples by (address, file)."""
    maps, samples = [], collections.Counter()
    script = run("perf", "script", "-i", data, "-F", "comm,pid,time,ip,sym,dso",
                 "--show-mmap-events")
    for line in script.splitlines():
        mapped = re.search(r"MMAP2? .*?\[0x(\w+)\(0x(\w+)\) @ (?:0x)?(\w+) .*?\]: \S+ (\S+)", line)
        sample = re.search(r":\s+([0-9a-f]+) .* \((\S*)\)$", line)
        if mapped:
            maps.append(tuple(int(mapped[i], 16) for i in (1, 2, 3)) + (mapped[4],))
        elif sample:
            samples[int(sample[1], 16), sample[2]] += 1
    return maps, samples


@functools.cache
def load_segments(file):
    rows = (line.split() for line in run("readelf", "-lW", file).splitlines())
    return [(int(r[1], 16), int(r[2], 16), int(r[4], 16)) for r in rows if r and r[0] == "LOAD"]


def in_file(maps, address, file):
    """The address as the file's line table has it."""
    for start, length, offset, name in maps:
        if name == file and start <= address < start + length:
            place = address - start + offset
            for begin, virtual, size in load_segments(file):
                if begin <= place < begin + size:
                    return place - begin + virtual
    return 0


def sample_time(command, folder):
    """Samples by (address in its file, file)."""
    data = os.path.join(folder, "perf.data")
    subprocess.run(["perf", "record", "-q", "-F", "1500", "-o", data] + command, check=True)
    maps, samples = read_samples(data)
    placed = collections.Counter()
    for (address, file), count in samples.items():
        placed[in_file(maps, address, file) if OWN.search(file) else 0, file] += count
    return placed


def count_instructions(command, folder):
    """The same for instructions."""
    data = os.path.join(folder, "callgrind.out")
    run("valgrind", "--tool=callgrind", "--dump-instr=yes", "--compress-pos=no",
        "--compress-strings=no", "--callgrind-out-file=" + data, *command)
    counts, file, inclusive = collections.Counter(), "", False
    with open(data, encoding="utf-8") as lines:
        for line in lines:
            if line.startswith("ob="):
                file = line[3:].strip()
            elif line.startswith("calls="):
                inclusive = True  # the next line repeats what the callee counts itself
            elif line.startswith("0x"):
                if not inclusive and "/ld-linux" not in file:
                    address, _, cost = line.split()
                    counts[int(address, 16), file] += int(cost)
                inclusive = False
    return counts


def main():
    command = sys.argv[1:]
    measure = sample_time
    if command[0] == "--instructions":
        measure = count_instructions
        command = command[1:]
    with tempfile.TemporaryDirectory() as folder:
        samples = measure(command, folder)
    total, lookups = sum(samples.values()), 0
    around = collections.Counter()
    by_file = collections.defaultdict(list)
    for (address, file), count in samples.items():
        if OWN.search(file):
            by_file[file].append((address, count))
        else:
            around[os.path.basename(file)] += count
    for file, places in by_file.items():
        answer = run("llvm-symbolizer", "--obj=" + file, "--inlines", "--output-style=LLVM",
                     input="\n".join(hex(place) for place, _ in places))
        for (_, count), frames in zip(places, answer.strip("\n").split("\n\n")):
            lines = frames.split("\n")
            sources = {os.path.basename(line.split(":")[0]) for line in lines[1::2]}
            if sources & LOOKUPS:
                lookups += count
            else:
                around[lines[-2].split("(anonymous namespace)::")[-1].split("(")[0]] += count
    print(f"{100 * lookups / total:6.2f} % look-ups; around them:")
    for name, count in around.most_common(20):
        print(f"{100 * count / total:6.2f} % {name}")


main()
