# shellcheck shell=bash
# Sourced by the scripts beside it: installs the Debian packages that are missing.
#   need PACKAGE...

need() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  if [ "$(id -u)" -ne 0 ]; then
    echo "missing packages: ${missing[*]} (run once as root, or install them)" >&2
    exit 1
  fi
  echo "installing ${missing[*]}" >&2
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
    >/dev/null
}
