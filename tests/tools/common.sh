# Sourced by the audiodiag command-line tests: the program under test, a scratch folder,
# and the checks of exit code, stderr and JSON report. Usage of a test: TEST AUDIODIAG
# [MACHINES_DIR].
set -uo pipefail
audiodiag=$1
machines=${2:-}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
# As a user runs it: the library's log and the machine as audiodiag chooses them.
unset LIBAUDIO_LOG LIBAUDIO_MACHINE

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# expect CODE DESCRIPTION COMMAND...: the command must exit with CODE; a failure says why
# on stderr and a success writes nothing there. Its output is left in $dir/out and
# $dir/err.
expect() {
    local want=$1 what=$2
    shift 2
    "$@" >"$dir/out" 2>"$dir/err"
    local got=$?
    [ "$got" = "$want" ] || { cat "$dir/err" >&2; fail "$what: exit $got, expected $want"; }
    if [ "$want" = 0 ]; then
        [ ! -s "$dir/err" ] || { cat "$dir/err" >&2; fail "$what: stderr of a success is not empty"; }
    else
        [ -s "$dir/err" ] || fail "$what: no message on stderr"
    fi
}

# check DESCRIPTION PYTHON-EXPRESSION: the JSON report in $dir/out, as r, must satisfy it.
check() {
    python3 - "$dir/out" "$2" <<'PY' || fail "$1: $(cat "$dir/out")"
import json, sys
r = json.load(open(sys.argv[1]))
assert eval("(" + sys.argv[2] + ")"), sys.argv[2]
PY
}

# has FILE DESCRIPTION PATTERN: FILE must have a line matching the extended regex.
has() {
    grep -Eq -- "$3" "$1" || { cat "$1" >&2; fail "$2: no line matches /$3/"; }
}
lacks() {
    ! grep -Eq -- "$3" "$1" || { cat "$1" >&2; fail "$2: a line matches /$3/"; }
}

# machine_with NAME PYTHON: writes $dir/NAME.json, the laptop changed by the Python
# statements, which see the description as m; the path is printed.
machine_with() {
    python3 - "$machines/laptop.json" "$dir/$1.json" "$2" <<'PY' || fail "machine $1"
import json, sys
m = json.load(open(sys.argv[1]))
exec(sys.argv[3])
json.dump(m, open(sys.argv[2], "w"), indent=1)
PY
    echo "$dir/$1.json"
}
