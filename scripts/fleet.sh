#!/usr/bin/env bash
# Proves the collection on three hosts that boot, with the packages that scripts/package.sh built:
# scripts/fleet.sh [TEST...], as Fleet.test_devices.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need ansible-core python3

scripts/collection.sh install
export ANSIBLE_COLLECTIONS_PATH=$PWD/build/ansible PATH=/usr/sbin:/usr/bin:/sbin:/bin
package=(build/package/mox-resources_*.deb)
scripts/hosts.sh 3 python3 ansible/tests/integration/fleet_test.py "${package[0]}" "$@"
