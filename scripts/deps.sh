#!/usr/bin/env bash
# Installs the Debian packages that are missing for building (and, with the
# argument "test", for testing and packaging) qv_hivectl. Runs apt-get update
# once, only when something is missing.
set -euo pipefail
packages=(cmake g++ make libboost-program-options-dev libboost-container-dev
          libcppdb-dev libpq-dev)
if [ "${1:-}" = test ]; then
  packages+=(libgtest-dev python3 postgresql-15 postgresql-client-15 git
             dpkg-dev file lintian tmux bash-completion man-db)
fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}" >/dev/null
fi
