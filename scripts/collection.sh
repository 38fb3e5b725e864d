#!/usr/bin/env bash
# Checks the Ansible collection without a network: ansible-test sanity, ansible-lint, yamllint, and its
# unit tests. `scripts/collection.sh install` only lays it out as Ansible finds it, in build/ansible.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/need.sh
need ansible-core ansible-lint git pycodestyle pylint python3-packaging python3-pytest python3-venv \
  python3-voluptuous python3-yaml shellcheck yamllint

export PATH=/usr/sbin:/usr/bin:/sbin:/bin # Debian's Python, which has Debian's modules
export ANSIBLE_COLLECTIONS_PATH=$PWD/build/ansible HOME=$PWD/build/ansible/home
home=$ANSIBLE_COLLECTIONS_PATH/ansible_collections/mox/resources
rm -rf "$home"
mkdir -p "$home" "$HOME"
cp -r ansible/. "$home"
[ "${1:-}" = install ] && exit

scripts/sanity_venvs.py
cd "$home"
git init -q . # whose files ansible-test and ansible-lint look at
ansible-test sanity --color no 2>&1 | grep -v '^Running\|^WARNING: Skipping'
ansible-lint --offline --nocolor
yamllint --strict .
python3 -m pytest -q -p no:cacheprovider tests/unit
