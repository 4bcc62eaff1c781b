#!/usr/bin/env bash
# Installs the packages of a lock file into a folder, without running any of their scripts; says
# nothing when they are there already.
#   install_npm_packages.sh FROM TO    FROM has package.json and package-lock.json
set -euo pipefail
from="$1"
to="$2"
command -v npm >/dev/null || {
  echo "npm is missing: scripts/install_dependencies.sh test installs it" >&2
  exit 1
}
mkdir -p "$to"
if cmp -s "$from/package-lock.json" "$to/installed-lock.json"; then exit 0; fi
rm -f "$to/installed-lock.json"
cp "$from/package.json" "$from/package-lock.json" "$to/"
cd "$to"
npm ci --ignore-scripts --no-audit --no-fund --loglevel=error
cp package-lock.json installed-lock.json
