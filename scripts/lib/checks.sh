# Sourced by other scripts: checks, which are counted.
# shellcheck shell=bash

passed=0
failed=0
failures=()

count_failure() {
    failed=$((failed + 1))
    failures+=("$1")
}

# check NAME COMMAND…: one check, passed if the command succeeds. Its output is shown if it fails.
check() {
    local name="$1" output
    shift
    if output=$("$@" 2>&1); then
        passed=$((passed + 1))
        say "passed: $name"
    else
        printf '%s\n' "$output"
        count_failure "$name"
        say "FAILED: $name"
    fi
}

# Prints the failed checks and, as the last line of the script, the numbers. Fails if a check did.
print_result() {
    local failure
    for failure in "${failures[@]+"${failures[@]}"}"; do
        say "FAILED: $failure"
    done
    printf '%d passed, %d failed\n' "$passed" "$failed"
    [ "$failed" -eq 0 ]
}
