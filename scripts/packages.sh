# Sourced by the scripts in this folder: installs the Debian packages a step
# needs, by name, when they are missing. Uses sudo when not run as root.
# FLICKER_SKIP_APT=1 skips it (packages already there, or no network).
flicker_install_packages() {  # flicker_install_packages <package>...
  [ "${FLICKER_SKIP_APT:-0}" = 1 ] && return 0
  local missing=()
  local p
  for p in "$@"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq &&
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}
