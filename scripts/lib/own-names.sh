# shellcheck shell=bash disable=SC2034  # for the scripts that source this
# Sourced by the scripts: "${own_names[@]}" COMMAND... runs it with a loopback and a /dev/shm that nobody else sees, so
# that a receiver in it meets no other one on port 6000 or in the rings. Needs iproute2, and root or the right to make
# user namespaces.
own_names=(unshare --net --mount --ipc)
[ "$(id -u)" -eq 0 ] || own_names+=(--user --map-root-user)
# shellcheck disable=SC2016  # expanded by the shell inside
own_names+=(-- bash -c 'mount -t tmpfs tmpfs /dev/shm && PATH=$PATH:/usr/sbin ip link set lo up && exec "$@"' own-names)
