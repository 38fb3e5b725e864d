#!/usr/bin/env bash
# Builds the Debian packages (build/package/*.deb) and passes lintian. `scripts/package.sh check` also
# builds them a second time in another folder and compares every byte, and passes debian/tests on a
# host of the laboratory.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
folder=build/package

# build_in FOLDER: packages FOLDER/*.deb from a copy of the sources in it.
build_in() {
  rm -rf "$1"
  mkdir -p "$1/mox"
  git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$1/mox"
  (cd "$1/mox" && dpkg-buildpackage --build=binary --no-sign --jobs=2) >"$1/log" 2>&1 ||
    { tail -n 40 "$1/log" >&2; exit 1; }
}

# Inside the laboratory: the package on its first host, and its tests there.
test_on_host() {
  local test host=(ssh -F "$MOX_LAB/ssh_config" h1)
  local package=("$folder"/mox-resources_*.deb)
  tar -c -C "$folder" "${package##*/}" -C "$PWD" debian/tests |
    "${host[@]}" 'tar -x && dpkg -i ./*.deb' >/dev/null
  for test in $(sed -n 's/^Tests: //; T; s/,//g; p' debian/tests/control); do
    # shellcheck disable=SC2029
    "${host[@]}" "DEB=\$(echo ~/*.deb) debian/tests/$test"
    echo "passed: $test"
  done
  "${host[@]}" 'cat node1.prom' | promtool check metrics
}
[ "${1:-}" = inside ] && { test_on_host; exit; }

need cmake debhelper g++ git lintian ninja-build prometheus
build_in "$folder"
lintian --allow-root --fail-on error,warning "$folder"/*.changes
[ "${1:-}" = check ] || exit 0

echo "== two builds give the same bytes"
build_in "$folder/second/folder"
for package in "$folder"/*.deb; do
  cmp "$package" "$folder/second/folder/${package##*/}"
done
rm -rf "$folder/second"

echo "== installed, used, upgraded and removed on a host that boots"
scripts/hosts.sh 1 "$0" inside
echo "== the alert rules"
promtool check rules examples/prometheus/mox-alerts.yml
