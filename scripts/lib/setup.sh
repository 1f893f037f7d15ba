# Sourced by other scripts: messages and installation of packages.
# shellcheck shell=bash

# The sourcing script sets root to the top of the tree.
: "${root:?}"

# Prints a progress message on stderr, apart from the output of the script.
say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

die() {
    say "$@"
    exit 1
}

# Runs a command as root.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "root or sudo is needed for: $*"
    fi
}

# packages_for [WORD]: the packages of packaging/debian-packages.txt with this word after their names;
# without an argument those for building and playing.
packages_for() {
    awk -v word="${1:-}" '
        /^[^#]/ {
            purposes = found = 0
            for (i = 2; i <= NF; ++i) {
                purposes += $i != "sysroot"
                found += $i == word
            }
            if (word == "" ? purposes == 0 : found)
                print $1
        }' "$root/packaging/debian-packages.txt"
}

# missing_packages [PURPOSE]: packages that are not installed but needed for building and playing, and
# for this purpose.
missing_packages() {
    local name
    for name in $(packages_for; [ "$#" -eq 0 ] || packages_for "$1"); do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$name" 2>/dev/null)" = installed ] ||
            printf '%s\n' "$name"
    done
}

# The name of this machine's Debian release.
debian_release() {
    # shellcheck source=/dev/null
    (. /etc/os-release && printf '%s\n' "${VERSION_CODENAME:?}")
}

# debian_archive SUITE: the archive of this machine with another suite, as lines for sources.list. Updates
# are omitted, because the packages of the release itself are consistent whatever the state of a mirror
# is.
debian_archive() {
    local lines
    lines=$(known_archive "$1")
    if [ -z "$lines" ]; then
        as_root apt-get update -qq >&2 || true
        lines=$(known_archive "$1")
    fi
    [ -n "$lines" ] || die "apt-get knows no Debian archive of $(debian_release); check the network"
    printf '%s\n' "$lines"
}

# The archives whose package lists apt-get has, with another suite.
known_archive() {
    # shellcheck disable=SC2016  # the fields are for apt-get
    apt-get indextargets --format "deb \$(REPO_URI) $1 \$(COMPONENT)" "Origin: Debian" \
        "Codename: $(debian_release)" "Component: main" "Identifier: Packages" | sort -u
}

# make_debian SUITE TARGET MMDEBSTRAP-OPTION…: unpacks a Debian system into a folder or packs it into a
# file. Prints why it could not.
make_debian() {
    local suite="$1" target="$2" archive log become=()
    shift 2
    [[ " $* " != *" --mode=root "* ]] || become=(as_root)
    # A mirror of sid may be older than the lists of sid are valid.
    [ "$suite" != sid ] || set -- --aptopt='Acquire::Check-Valid-Until "false"' "$@"
    archive=$(debian_archive "$suite") || return
    log=$(mktemp)
    "${become[@]}" mmdebstrap "$@" "$suite" "$target" - <<<"$archive" >"$log" 2>&1 || {
        say "the system of $suite cannot be made: $(grep -m 1 '^E: ' "$log" || tail -n 1 "$log")"
        rm -f "$log"
        return 1
    }
    rm -f "$log"
}

# Installs missing packages. Prints nothing if none is missing.
install_packages() {
    local missing name
    command -v apt-get >/dev/null || die "this script needs Debian: there is no apt-get"
    mapfile -t missing < <(missing_packages "$@")
    [ "${#missing[@]}" -gt 0 ] || return 0

    say "installing ${missing[*]}"
    as_root apt-get update -qq || die "apt-get update failed; check the network"
    for name in "${missing[@]}"; do
        apt-cache show "$name" >/dev/null 2>&1 || die "there is no Debian package $name here"
    done
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null || die "apt-get could not install: ${missing[*]}"
}

# The file that marks a complete armhf sysroot and identifies its content.
# shellcheck disable=SC2034  # for the sourcing scripts
sysroot_stamp=.kova-sysroot

# The folder of the armhf sysroot, outside the tree because all working copies share it.
armhf_sysroot() {
    printf '%s\n' "${KOVA_ARMHF_SYSROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/kova/armhf-sysroot}"
}
