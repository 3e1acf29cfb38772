# shellcheck shell=bash
# Sourced by the scripts: Debian packages of another architecture as a directory or an archive.

# The archive that this system has its own packages from, and how apt gets there; for mmdebstrap. A system that never
# asked one leaves the choice to it.
debian_mirror() {
    # shellcheck disable=SC2016  # the field's name is apt's own
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' \
        'Release: bookworm' 'Component: main' | grep -m 1 '^http' || true
}
debian_proxy_options() {
    apt-config dump | grep -E '^Acquire::(https?::Proxy|Check-Date|Check-Valid-Until)' | sed 's/^/--aptopt=/' || true
}

# unpack_debian ARCHITECTURE DIRECTORY|FILE.tar PACKAGE... [-- MMDEBSTRAP_OPTION...]
# The packages and what they depend on are only unpacked: nothing of another architecture runs, so
# that neither binfmt_misc nor root is needed, and the host's own packages stay as they are.
unpack_debian() {
    local architecture=$1 target=$2 package packages=() settings=() mirror downloads mode=root
    shift 2
    while [ $# -gt 0 ]; do
        package=$1
        shift
        [ "$package" != -- ] || break
        packages+=("$package")
    done
    [ "$(id -u)" -eq 0 ] || mode=chrootless

    # Updates are left out: mirrors of other architectures lag behind, and what is compiled or tried
    # here is no system to keep safe.
    mirror=$(debian_mirror)
    mapfile -t settings < <(debian_proxy_options)

    # What was downloaded before is not downloaded again. (Hooks run in a directory of their own.)
    downloads=$PWD/build/downloads/$architecture
    mkdir -p "$downloads"
    settings+=("--skip=essential/unlink,download/empty"
        "--setup-hook=mkdir -p \"\$1/var/cache/apt/archives/partial\""
        "--setup-hook=sync-in '$downloads' /var/cache/apt/archives"
        "--extract-hook=sync-out /var/cache/apt/archives '$downloads'")
    mmdebstrap --quiet --mode="$mode" --variant=extract --architectures="$architecture" \
        --include="$(IFS=,; echo "${packages[*]}")" "${settings[@]}" "$@" \
        bookworm "$target" ${mirror:+"$mirror"}
}
