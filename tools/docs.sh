#!/usr/bin/env bash
# Prints the parameter tables of all plug-ins into docs/parameters.md.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
{
    echo '# Parameters of all plug-ins'
    echo
    echo 'Printed by `tools/docs.sh`. Names, types and defaults are what scene files rely on.'
    echo
    ./nimbra params --markdown
} >docs/parameters.md
