# What the scripts share; sourced by them, not run. Gives: project (its folder), step, fail, quietly, as_root,
# tar_work_tree, ensure_packages.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

step() { printf '==> %s\n' "$*"; }

fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# Run a command; what it says is shown when it fails, and its failure ends the script.
quietly() {
    local output
    output=$("$@" 2>&1) || {
        printf '%s\n' "$output" >&2
        fail "this failed: $*"
    }
}

# tar_work_tree OPTION...: the files of the work tree, as a tar archive on standard output: without what git
# ignores or, where there is no git, without build/.
tar_work_tree() {
    if [ -e "$project/.git" ]; then
        git -C "$project" ls-files -z --cached --others --exclude-standard |
            tar -C "$project" "$@" --null --files-from=- --ignore-failed-read -cf - 2>/dev/null
    else
        tar -C "$project" --exclude=./build "$@" -cf - .
    fi
}

# Run a command as root: directly, or through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "this needs root rights, and there is no sudo: $*"
    fi
}

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Install the Debian packages named, as far as they are missing.
ensure_packages() {
    local package missing=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -ne 0 ] || return 0
    step "installing ${missing[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
        >/dev/null
}

# Debian packages, by what needs them.
build_packages=(g++ cmake ninja-build)
test_packages=(
    libgtest-dev                     # the test framework
    zlib1g-dev libssl-dev libmd-dev  # independent checksums and digests; rival exports of MD5Init and others
    tzdata                           # time zones
    imagemagick python3              # what the catalogue's output is compared with
    nlohmann-json3-dev               # reads the catalogue's JSON
    pkg-config binutils              # consumers of the installed library; a look into its symbol tables
    gdb                              # loads the library's commands
)
bench_packages=(
    libbenchmark-dev python3-matplotlib                             # the benchmark framework; plots
    libdeflate-dev libisal-dev zlib1g-dev libssl-dev libmd-dev      # peers: checksums and digests
    libtalloc-dev libapr1-dev libglib2.0-dev uuid-dev pkg-config    # peers: owned memory, arrays, services
)
packaging_packages=(build-essential debhelper lintian)
reference_packages=(doxygen doxygen-awesome-css python3)   # the reference's site with its theme; the manual pages
reference_check_packages=(mandoc man-db binutils)          # two readings of the manual pages; the exports
