#!/usr/bin/env bash
# Builds the service and runs it in console mode on the simulated notebook (the built-in
# scenario, or the file named by ZALTOR_SIM_SCENARIO). Stop it with Ctrl+C.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j"$(nproc)" --target ZaltorMultiAntennaSvc antennactl zaltor_sample_config
# Like the product's installer, create the registry key in which the service records the
# configuration version (on Linux a directory under ZALTOR_STATE_DIR).
state_dir=${ZALTOR_STATE_DIR:-/var/lib/zaltor-multiantenna}
key="$state_dir/SOFTWARE/ZALTOR/ZALTOR MultiAntenna"
mkdir -p "$key"
[ -f "$key/ConfigVersion" ] || printf '%s' "2.0-sample" > "$key/ConfigVersion"
cd build/bin
echo "== ZaltorMultiAntennaSvc -console in $(pwd) (log file: $(pwd)/rflog.txt; Ctrl+C stops it)"
exec ./ZaltorMultiAntennaSvc -console
