#!/usr/bin/env bash
# audiodiag's contract with scripts: exit 0 on success, 1 when the operation fails,
# 2 on misuse, and a message on stderr for every failure.
set -uo pipefail
audiodiag=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

expect() { # expected-code description command...
    local want=$1 what=$2
    shift 2
    "$@" >"$dir/out" 2>"$dir/err"
    local got=$?
    [ "$got" = "$want" ] || fail "$what: exit $got, expected $want"
    if [ "$want" != 0 ]; then
        [ -s "$dir/err" ] || fail "$what: no message on stderr"
    fi
}

expect 2 "no command" "$audiodiag"
expect 2 "missing file" "$audiodiag" tone
expect 2 "amplitude too large" "$audiodiag" tone "$dir/x.wav" --amp 40000
expect 2 "frequency above Nyquist" "$audiodiag" tone "$dir/x.wav" --freq 30000 --rate 48000
expect 2 "three channels" "$audiodiag" tone "$dir/x.wav" --channels 3
expect 1 "unwritable path" "$audiodiag" tone "$dir/no/such/dir/x.wav"
expect 1 "missing input" "$audiodiag" wav-info "$dir/missing.wav"
printf 'RIFF\x04\x00\x00\x00JUNK' >"$dir/junk.wav"
expect 1 "not a WAV file" "$audiodiag" wav-info "$dir/junk.wav"

expect 0 "tone" "$audiodiag" --json tone "$dir/t.wav" --seconds 0.1 --rate 8000 --channels 1
python3 -c 'import json,sys; r=json.load(open(sys.argv[1])); assert r["blocks"] == 800, r' \
    "$dir/out" || fail "tone report"
expect 0 "wav-info" "$audiodiag" --json wav-info "$dir/t.wav"
python3 - "$dir/out" <<'PY' || fail "wav-info report"
import json, sys
r = json.load(open(sys.argv[1]))
assert r["blocks"] == 800 and r["format"]["channels"] == 1, r
assert abs(r["duration_seconds"] - 0.1) < 1e-9, r
# A full sine of peak 16384 has a standard deviation of 16384 / sqrt(2).
assert abs(r["channels"][0]["std_dev"] - 16384 / 2 ** 0.5) < 5, r
PY
# Volume: a change is applied and reported; a level outside the range is refused.
expect 0 "volume set" "$audiodiag" --json volume headphones --set 40
python3 -c 'import json,sys; r=json.load(open(sys.argv[1])); assert r["volume"]["master_percent"] == 40, r' \
    "$dir/out" || fail "volume report"
expect 1 "volume above range" "$audiodiag" volume headphones --set-db 5
expect 2 "ambiguous endpoint" "$audiodiag" endpoint speakers
expect 2 "unknown endpoint" "$audiodiag" endpoint nothing-like-this
expect 2 "unknown machine" "$audiodiag" --machine no-such-machine endpoints
printf '{"endpoints": [{"flow": "sideways"}]}' >"$dir/bad.json"
expect 2 "malformed machine" "$audiodiag" --machine "$dir/bad.json" endpoints
grep -q 'endpoints\[0\].flow' "$dir/err" || fail "malformed machine message names the field"
expect 0 "mute by name" "$audiodiag" --json volume "Speakers (Realtek High Definition Audio)" --mute
python3 -c 'import json,sys; assert json.load(open(sys.argv[1]))["volume"]["muted"]' "$dir/out" \
    || fail "mute report"

echo "cli: ok"
