#!/usr/bin/env bash
# Formats all C++ sources; with --check, only says which ones differ.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
mode=(-i)
[ "${1:-}" = --check ] && mode=(--dry-run --Werror)
git ls-files '*.cpp' '*.h' | xargs -r clang-format "${mode[@]}"
