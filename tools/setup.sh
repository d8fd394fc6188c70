#!/usr/bin/env bash
# Installs what is missing of tools/packages.txt. Quiet, and at once done when nothing is missing.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
missing=()
while read -r package; do
    case "$package" in ''|'#'*) continue ;; esac
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
        missing+=("$package")
done < "$here/packages.txt"
[ ${#missing[@]} -eq 0 ] && exit 0

command -v apt-get >/dev/null || {
    echo "nimbra: these Debian packages are missing and apt-get is not here: ${missing[*]}" >&2
    exit 1
}
run=()
[ "$(id -u)" -eq 0 ] || {
    command -v sudo >/dev/null || {
        echo "nimbra: run once as root: apt-get install ${missing[*]}" >&2
        exit 1
    }
    run=(sudo)
}
echo "nimbra: installing ${#missing[@]} Debian packages ..." >&2
"${run[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq update >&2
"${run[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
