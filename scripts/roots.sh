# Minimal roots of Debian releases, made by debootstrap and kept between runs, in the folder that QV_ROOTS
# names, by default under the user's cache. Sourced behind common.sh, not run. Gives: roots (that folder),
# ensure_root, run_in, lay_sources, scratch (a folder that ends with the script), and the script's three exit
# statuses: 0 passed, 1 failed, 77 a root could not be made.
readonly roots=${QV_ROOTS:-${XDG_CACHE_HOME:-$HOME/.cache}/QVfoundation/roots}
scratch=$(mktemp -d)
log=$scratch/log
trap finish EXIT

root_is_missing=
cannot_make_root() {
    printf 'cannot make a root of Debian %s: %s\n' "$1" "$2" >&2
    root_is_missing=yes
    exit
}

# Ends the script with one of its three statuses, whatever the command that failed ended with.
finish() {
    local status=$?
    rm -rf "$scratch"
    [ -z "$root_is_missing" ] || exit 77
    [ "$status" -eq 0 ] || exit 1
}

# The package source that this machine's own apt is set up with.
mirror() {
    apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(REPO_URI)' 'Created-By: Packages' |
        awk '$1 == "Debian" && $2 !~ /-/ && !seen++ { print $3 }'
}

# run_in ROOT COMMAND...: run a command inside a root. The mounts vanish with the command.
run_in() {
    local root=$roots/$1
    shift
    as_root unshare --mount --fork sh -c '
        root=$1; shift
        mount -t proc proc "$root/proc" && mount --rbind /dev "$root/dev" &&
            mount -t devpts -o newinstance,ptmxmode=666 devpts "$root/dev/pts" &&
            mount --bind "$root/dev/pts/ptmx" "$root/dev/ptmx" && exec chroot "$root" "$@"' \
        sh "$root" env --ignore-environment PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive "$@"
}

# ensure_root ROOT RELEASE PACKAGE...: make the root of a release unless it stands ready with these packages.
# What may end the script for want of root rights runs in a subshell, for that is not a failed test.
ensure_root() {
    local root=$roots/$1 name=$1 release=$2
    shift 2
    local packages="$*"
    (as_root unshare --mount true) 2>"$log" ||
        cannot_make_root "$release" "this needs root rights: $(tail -n 1 "$log")"
    if [ -e "$root/ready" ] && [ "$(cat "$root/ready")" = "$packages" ]; then
        return 0
    fi
    step "$release: making a root in $root"
    (ensure_packages debootstrap) || cannot_make_root "$release" "debootstrap cannot be installed"
    as_root mkdir -p "$roots" || cannot_make_root "$release" "$roots cannot be made"
    if [ ! -e "$root/etc/debian_version" ]; then
        as_root rm -rf "$root" "$root.partial"
        as_root debootstrap --variant=minbase "$release" "$root.partial" "$(mirror)" >"$log" 2>&1 ||
            cannot_make_root "$release" "$(tail -n 1 "$log")"
        as_root mv "$root.partial" "$root"
    fi
    run_in "$name" sh -c "apt-get update -qq && apt-get install -y -qq --no-install-recommends $packages" \
        >"$log" 2>&1 || cannot_make_root "$release" "$(tail -n 1 "$log")"
    echo "$packages" | as_root tee "$root/ready" >/dev/null
}

# lay_sources ROOT: unpack a tar archive from standard input into /src of a root, which holds nothing else then.
lay_sources() {
    as_root rm -rf "$roots/$1/src"
    as_root mkdir "$roots/$1/src"
    as_root tar -C "$roots/$1/src" --no-same-owner -xf -
}
