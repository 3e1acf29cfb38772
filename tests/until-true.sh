# shellcheck shell=bash
# Sourced by tests that are scripts.

# until_true SECONDS COMMAND...: waits, and says what was not in time.
until_true() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        if [ $SECONDS -ge "$end" ]; then
            echo "not in time: $*"
            return 1
        fi
        sleep 0.1
    done
}
