#!/usr/bin/env bash
# Files written by audiodiag are read correctly by sox, and files written by sox are
# measured correctly by audiodiag: the WAV code agrees with an independent implementation.
set -euo pipefail
audiodiag=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

"$audiodiag" tone "$dir/tone.wav" --freq 1000 --amp 16384 --seconds 0.5 --rate 44100 \
    --channels 1 >/dev/null
[ "$(soxi -r "$dir/tone.wav")" = 44100 ] || fail "sample rate"
[ "$(soxi -c "$dir/tone.wav")" = 1 ] || fail "channels"
[ "$(soxi -b "$dir/tone.wav")" = 16 ] || fail "bits"
[ "$(soxi -s "$dir/tone.wav")" = 22050 ] || fail "sample count"

# sox's own measurement of the signal: peak 16384/32768 = 0.5, frequency about 1 kHz.
stats=$(sox "$dir/tone.wav" -n stat 2>&1)
peak=$(awk '/Maximum amplitude/ {print $3}' <<<"$stats")
freq=$(awk '/Rough   frequency/ {print $3}' <<<"$stats")
awk -v p="$peak" 'BEGIN { exit !(p > 0.499 && p < 0.501) }' || fail "peak $peak"
awk -v f="$freq" 'BEGIN { exit !(f > 980 && f < 1020) }' || fail "frequency $freq"

# Stereo with the tone in the right channel only: sox sees silence on the left.
"$audiodiag" tone "$dir/right.wav" --channels 2 --channel right --seconds 0.25 >/dev/null
left=$(sox "$dir/right.wav" -n remix 1 stat 2>&1 | awk '/Maximum amplitude/ {print $3}')
right=$(sox "$dir/right.wav" -n remix 2 stat 2>&1 | awk '/Maximum amplitude/ {print $3}')
awk -v l="$left" -v r="$right" 'BEGIN { exit !(l == 0 && r > 0.49) }' || fail "channels $left $right"

# The other way: a file written by sox, measured by both. Our standard deviation of a
# zero-mean signal must match sox's RMS amplitude (sox scales samples by 1/32768).
sox -D -n -r 16000 -b 16 -c 2 "$dir/square.wav" synth 0.5 square 500 vol 0.25
rms=$(sox "$dir/square.wav" -n stat 2>&1 | awk '/RMS     amplitude/ {print $3}')
info=$("$audiodiag" --json wav-info "$dir/square.wav")
python3 - "$info" "$rms" <<'PY'
import json, sys
report, rms = json.loads(sys.argv[1]), float(sys.argv[2]) * 32768
assert report["format"]["sample_rate"] == 16000, report
assert report["blocks"] == 8000, report
for channel in report["channels"]:
    assert abs(channel["std_dev"] - rms) < rms * 0.002, (channel, rms)
    assert abs(channel["mean"]) < 20, channel
PY
echo "sox round trip: ok"
