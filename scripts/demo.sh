#!/usr/bin/env bash
# Builds the service and runs it in console mode on the simulated notebook.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)"
cd build/bin
exec ./ZaltorMultiAntennaSvc -console
