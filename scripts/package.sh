#!/usr/bin/env bash
# Builds the Debian packages (build/package/*.deb) and passes lintian. `scripts/package.sh check` also
# builds them a second time in another folder and compares every byte, and passes debian/tests on a
# host of the laboratory.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need cmake debhelper g++ git lintian ninja-build

# build_in FOLDER: packages FOLDER/*.deb from a copy of the sources in it.
build_in() {
  rm -rf "$1"
  mkdir -p "$1/mox"
  git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$1/mox"
  (cd "$1/mox" && dpkg-buildpackage --build=binary --no-sign --jobs=2) >"$1/log" 2>&1 ||
    { tail -n 40 "$1/log" >&2; exit 1; }
}

folder=build/package
build_in "$folder"
lintian --allow-root --fail-on error,warning "$folder"/*.changes
[ "${1:-}" = check ] || exit 0

echo "== two builds give the same bytes"
build_in "$folder/second/folder"
for package in "$folder"/*.deb; do
  cmp "$package" "$folder/second/folder/${package##*/}"
done
rm -rf "$folder/second"

echo "== installed, used and removed"
scripts/hosts.sh 1 debian/tests/run "$folder"
