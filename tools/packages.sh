# shellcheck shell=bash
# shellcheck disable=SC2034 # the lists are for the scripts that source this
#
# Debian packages by purpose, and installing what is missing of them and of npm's modules. Sourced by run and test.

PACKAGES_RUN=(lighttpd lighttpd-mod-openssl ffmpeg xz-utils)
PACKAGES_BUILD=(g++ cmake ninja-build pkg-config libjsoncpp-dev libsqlite3-dev libcgicc-dev libsodium-dev libcli11-dev
  libcurl4-openssl-dev libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libturbojpeg0-dev)
PACKAGES_TEST=(ccache nginx libgtest-dev libgmock-dev libbenchmark-dev python3 curl iproute2 chromium motion python3-gi
  gir1.2-gst-rtsp-server-1.0 gir1.2-gst-plugins-base-1.0 gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly)

stop_with() {
  echo "${0##*/}: $*" >&2
  exit 1
}

# Prints those of the given packages that are not installed.
missing_packages() {
  local installed package
  installed=$(dpkg-query -W -f='${db:Status-Abbrev} ${Package}\n' "$@" 2>/dev/null | sed -n 's/^ii  *//p') || true
  for package in "$@"; do
    grep -qxF "$package" <<<"$installed" || echo "$package"
  done
}

require_debian() {
  local id version
  id=$(sed -n 's/^ID=//p' /etc/os-release 2>/dev/null || true)
  version=$(sed -n 's/^VERSION_ID=//p' /etc/os-release 2>/dev/null | tr -d '"')
  if [[ $id != debian || $version != 12 ]]; then
    stop_with "this needs Debian 12, the machine runs ${id:-an unknown system} ${version:-}"
  fi
}

# Whether at least $1 MB are free in the file system of directory $2.
has_space() {
  (($(df -Pm "$2" | awk 'NR == 2 { print $4 }') >= $1))
}

as_root() {
  if ((EUID == 0)); then "$@"; else sudo "$@"; fi
}

APT_UPDATED=
apt_update() {
  [[ -n $APT_UPDATED ]] && return
  as_root apt-get update -q || stop_with "apt-get update failed (see above); is this machine online?"
  APT_UPDATED=1
}

# Installs what is missing of the given packages. Services that come with them are not left running or enabled.
install_packages() {
  local missing service
  mapfile -t missing < <(missing_packages "$@")
  ((${#missing[@]} == 0)) && return
  if ((EUID != 0)) && ! command -v sudo >/dev/null; then
    stop_with "these packages are missing, and without root or sudo they cannot be installed: ${missing[*]}"
  fi
  has_space 2000 /usr || stop_with "less than 2 GB are free in /usr, too little for the packages; make room first"
  echo "Installing packages: ${missing[*]}"
  apt_update
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends \
    -o DPkg::Lock::Timeout=120 -o APT::Color=0 -o Dpkg::Use-Pty=0 "${missing[@]}" ||
    stop_with "apt-get could not install the packages (see above)"
  if [[ -d /run/systemd/system ]]; then
    for service in lighttpd motion nginx; do
      if [[ " ${missing[*]} " == *" $service "* ]]; then as_root systemctl disable --now --quiet "$service" || true; fi
    done
  fi
}

# Node.js with npm, unless they are there already, from wherever.
install_node() {
  if ! command -v node >/dev/null || ! command -v npm >/dev/null; then install_packages nodejs npm; fi
}

# The modules of the npm project in directory $1, exactly as locked. Fails when they cannot be had.
install_modules() {
  [[ $1/node_modules/.package-lock.json -nt $1/package-lock.json ]] && return
  (cd "$1" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error) && touch "$1/node_modules/.package-lock.json"
}

PAGE_PLAYER=host/web/vendor/hls.mjs

has_page_player() { [[ $PAGE_PLAYER -nt tools/page-modules/package-lock.json ]]; }

# What the page plays H.264 with, put where the page finds it. Fails when it cannot be had.
install_page_player() {
  local module=tools/page-modules/node_modules/hls.js
  has_page_player && return
  install_modules tools/page-modules && mkdir -p "${PAGE_PLAYER%/*}" &&
    cp "$module/LICENSE" "${PAGE_PLAYER%/*}/hls-license.txt" &&
    cp "$module/dist/hls.light.min.mjs" "$PAGE_PLAYER.part" && mv "$PAGE_PLAYER.part" "$PAGE_PLAYER"
}
