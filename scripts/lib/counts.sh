# shellcheck shell=bash
# Sourced by the scripts that run tests: the closing line of a suite.

# print_counts REPORT: "N passed, N failed, N skipped" from the runner's own report, so that a suite that did not run
# is not counted. Fails where nothing passed.
print_counts() {
    local report=$1 tests failed skipped passed
    attribute() { sed -n "0,/<testsuite/ s/.*\b$1=\"\([0-9]*\)\".*/\1/p" <(tr '\n\t' '  ' <"$report" | head -c 2000); }
    tests=$(attribute tests) failed=$(attribute failures)
    skipped=$(($(attribute skipped) + $(attribute disabled)))
    passed=$((tests - failed - skipped))
    if [ "$passed" -le 0 ]; then
        echo "No test passed" >&2
    fi
    echo "$passed passed, $failed failed, $skipped skipped"
    [ "$passed" -gt 0 ]
}
