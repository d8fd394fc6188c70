#!/usr/bin/env bash
# Runs clang-tidy over the sources (all, or those named) with the release build's compile commands.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
cmake --preset release >/dev/null
if [ $# -gt 0 ]; then files=("$@"); else mapfile -t files < <(git ls-files 'src/*.cpp'); fi
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/release --quiet
