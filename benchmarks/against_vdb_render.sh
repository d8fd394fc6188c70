#!/usr/bin/env bash
# Times one picture of a big plume against vdb_render of OpenVDB's tools: the same file, camera, light,
# density and steps, on one core, the two in turn. Prints CPU seconds, peak memory, what of it the
# grid's voxels take (the peak less that with a grid of two voxels), and how much each picture changes
# when its default step is cut to a quarter. Both take the extinction by the cell.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
for tool in vdb_render:libopenvdb-tools idiff:openimageio-tools time:time; do
    command -v "/usr/bin/${tool%%:*}" >/dev/null || apt-get install -y -q "${tool##*:}" >/dev/null
done
nimbra=${NIMBRA:-./nimbra}
"$nimbra" --version >/dev/null
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
plume=$PWD/benchmarks/data/fluid_noise_0028.vdb
voxels=2434650 # active ones of the plume
tiny=$PWD/benchmarks/data/two_voxels.vdb
rounds=${ROUNDS:-3}

peer() { # picture, step, shadow step
    vdb_render "${data:-$plume}" "$1" -name density_noise -res 960x540 -camera persp -fov 40 \
        -translate 1,-4.6,1.3 -lookat 1,1,1.2 -up 0,0,1 -light 0.6,-0.5,0.6,1,1,1 \
        -absorb 0.1,0.1,0.1 -scatter 1.5,1.5,1.5 -gain 0.2 -step "$2" -shadowstep "$3" -cpus 1
}
ours() { # picture, step in percent, shadow step in percent
    "$nimbra" render benchmarks/big_smoke.json -o "$1" -t 1 -q \
        --set "smoke.rendstep=$2" --set "smoke.rendshadstep=$3" --set "cache.cache_path=${data:-$plume}"
}
timed() { # name, command ...: CPU seconds and peak memory
    local name=$1
    shift
    /usr/bin/time -o "$out/time" -f '%U %S %M' bash -c "$*" >/dev/null
    awk -v n="$name" '{printf "%-12s %6.2f s CPU, %6.1f MiB\n", n, $1 + $2, $3 / 1024}' "$out/time"
}
peak() { # command ...: peak memory in KiB
    /usr/bin/time -o "$out/time" -f '%M' bash -c "$*" >/dev/null
    cat "$out/time"
}
perVoxel() { # name, command ...
    local name=$1 whole base
    shift
    whole=$(peak "$@")
    base=$(data=$tiny peak "$@")
    echo "$name: $(((whole - base) * 102400 / voxels))" |
        sed -E 's/(.+)(..)$/\1.\2 bytes a voxel/'
}
export -f peer ours
export plume nimbra
for ((i = 0; i < rounds; i++)); do
    timed vdb_render peer "$out/peer.exr" 0.5 1
    timed nimbra ours "$out/ours.exr" 50 100
done
perVoxel vdb_render peer "$out/peer.exr" 0.5 1
perVoxel nimbra ours "$out/ours.exr" 50 100
change() { idiff "$1" "$2" 2>/dev/null | awk '/RMS error/ {print $NF}' || true; }
peer "$out/p1.exr" 1 3 && peer "$out/p4.exr" 0.25 0.75
ours "$out/o1.exr" 90 200 && ours "$out/o4.exr" 22 50
echo "RMS change from the default step to a quarter: vdb_render $(change "$out/p1.exr" "$out/p4.exr")," \
    "nimbra $(change "$out/o1.exr" "$out/o4.exr")"
if [ -n "${KEEP:-}" ]; then cp "$out"/*.exr "$KEEP"; fi
