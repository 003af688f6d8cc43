# shellcheck shell=bash disable=SC2034
# The Debian packages (and npm packages) that the project's scripts need, by purpose. To be sourced by bash:
#
#   . tools/packages.sh
#   install_packages build run test
#   install_node_packages
#
# What is there already is left alone, so that a second call takes no time and needs no network and no root.

packages_build=(
  build-essential cmake ninja-build pkg-config
  libwxgtk3.2-dev libgtk-3-dev nlohmann-json3-dev libpugixml-dev libssl-dev libp11-kit-dev
  libgtest-dev libgmock-dev
)
# A display without a screen, a soft token, and the judges of what was signed.
packages_run=(
  softhsm2 opensc p11-kit openssl ca-certificates poppler-utils libnss3-tools
  xvfb openbox xdotool x11-utils imagemagick fonts-dejavu-core
)
# More tokens to test the driver with: the soft token of NSS, a TPM in software, a smart card in software with its reader, and
# the soft token of openCryptoki.
packages_test=(
  valgrind locales faketime strace sway grim wtype pinentry-gtk2
  at-spi2-core dbus-daemon gir1.2-atspi-2.0 python3-gi
  libnss3 libtpm2-pkcs11-1 libtss2-tcti-swtpm0 swtpm pcscd vsmartcard-vpcd libcacard0 python3 opencryptoki
)
packages_bench=(libengine-pkcs11-openssl)
packages_tree=(git clang-tidy shellcheck pyflakes3)
packages_packaging=(dpkg-dev debhelper fakeroot lintian git dbus-daemon python3-gi systemd zip)
# Makers of PDF documents, and those who judge signed ones.
packages_extension=(
  ghostscript groff img2pdf imagemagick librsvg2-bin libnss3-tools mupdf-tools openssl poppler-utils python3-cairo python3-reportlab
  qpdf texlive-latex-base weasyprint
)
# Others who verify.
packages_docs=(default-jdk-headless python3-cryptography python3-jwt)
packages_packages=(xmlsec1)
# With the languages of the extension, and their letters.
packages_browser=(
  chromium chromium-l10n firefox-esr firefox-esr-l10n-de firefox-esr-l10n-hi-in firefox-esr-l10n-ta
  fonts-lohit-deva fonts-lohit-taml qpdf x11-xserver-utils
)
packages_fuzz=(clang libclang-rt-14-dev llvm-14)
packages_coverage=(gcovr)
# Left out when a Node.js that is new enough is installed in another way.
packages_node=(nodejs npm)

node_is_usable() {
  command -v npm >/dev/null && node -e 'process.exit(parseInt(process.versions.node) < 18 ? 1 : 0)' 2>/dev/null
}

# install_packages <purpose>...: installs what is missing of these lists and of Node.js. Says in one line what failed.
install_packages() {
  local purpose wanted=() missing=()
  for purpose in "$@"; do
    local -n list="packages_$purpose"
    wanted+=("${list[@]}")
  done
  node_is_usable || wanted+=("${packages_node[@]}")

  if ! command -v apt-get >/dev/null; then
    echo "No apt-get on this machine. These packages are needed, by their Debian names:" >&2
    printf '  %s\n' "${wanted[@]}" >&2
    return 1
  fi

  mapfile -t missing < <(packages_not_installed "${wanted[@]}")
  ((${#missing[@]})) || return 0
  echo "Installing ${missing[*]}"
  run_apt_get update && run_apt_get install -y --no-install-recommends "${missing[@]}" || return 1
  node_is_usable || { echo "Node.js 18 or later and npm are needed, and the packages did not bring them" >&2; return 1; }
}

# packages_not_installed <package>...: those that dpkg does not know as installed, under no name, one per line. Some of Debian
# 12's names are other names of a package in Debian 13.
packages_not_installed() {
  dpkg-query -W -f '${db:Status-Status} ${Package}, ${Provides}\n' | sed -n 's/^installed //p' | tr ',' '\n' | sed 's/^ *//; s/ .*//' |
    sort -u | comm -13 - <(printf '%s\n' "$@" | sort -u)
}

# run_apt_get <argument>...: as root, without questions; quiet unless it fails.
run_apt_get() {
  local as_root=() output
  if ((EUID != 0)); then
    command -v sudo >/dev/null || { echo "Run as root, or install sudo: apt-get $1 needs it" >&2; return 1; }
    as_root=(sudo)
    [[ -t 0 ]] || as_root+=(-n) # nobody there to give a password
  fi
  output=$("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=120 "$@" </dev/null 2>&1) && return 0
  echo "apt-get $1 failed: $(grep -m1 -E '^(E|Err|sudo):?' <<<"$output" || tail -n1 <<<"$output")" >&2
  return 1
}

# install_node_packages: node_modules as package-lock.json says, unless it is so already. In the project's root.
install_node_packages() {
  local stamp=node_modules/.package-lock.stamp output
  cmp -s package-lock.json "$stamp" && return 0
  echo "Installing the packages of package-lock.json"
  if ! output=$(npm ci --loglevel=error --no-update-notifier </dev/null 2>&1); then
    echo "npm ci failed: $(grep -m1 -i error <<<"$output" || tail -n1 <<<"$output")" >&2
    return 1
  fi
  cp package-lock.json "$stamp"
}
