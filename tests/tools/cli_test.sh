#!/usr/bin/env bash
# audiodiag's contract with scripts and people: exit 0 on success with nothing on stderr,
# 1 when the operation fails, 2 on misuse, a message on stderr for every failure; global
# options before or after the command; endpoints by id, name or a prefix of either; jack
# values by name. Usage: cli_test.sh AUDIODIAG
source "$(dirname "$0")/common.sh"

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
check "tone report" 'r["blocks"] == 800'
expect 0 "wav-info" "$audiodiag" --json wav-info "$dir/t.wav"
# A full sine of peak 16384 has a standard deviation of 16384 / sqrt(2).
check "wav-info report" 'r["blocks"] == 800 and r["format"]["channels"] == 1 and
    abs(r["duration_seconds"] - 0.1) < 1e-9 and abs(r["channels"][0]["std_dev"] - 16384 / 2 ** 0.5) < 5'

# Volume: a change is applied and reported; a level outside the range is refused.
expect 0 "volume set" "$audiodiag" --json volume headphones --set 40
check "volume report" 'r["volume"]["master_percent"] == 40'
expect 1 "volume above range" "$audiodiag" volume headphones --set-db 5
expect 2 "unknown endpoint" "$audiodiag" endpoint nothing-like-this
expect 2 "empty endpoint" "$audiodiag" endpoint ""
expect 2 "unknown machine" "$audiodiag" --machine no-such-machine endpoints
printf '{"endpoints": [{"flow": "sideways"}]}' >"$dir/bad.json"
expect 2 "malformed machine" "$audiodiag" --machine "$dir/bad.json" endpoints
has "$dir/err" "malformed machine message names the field" 'endpoints\[0\]\.flow'
expect 0 "mute by name" "$audiodiag" --json volume "Speakers (Realtek High Definition Audio)" --mute
check "mute report" 'r["volume"]["muted"]'

# Global options stand before or after the command and its own options, to the same effect.
expect 0 "options before" "$audiodiag" --json --machine desktop endpoints
cp "$dir/out" "$dir/before.json"
for order in "endpoints --json --machine desktop" "--machine desktop endpoints --json" \
    "--json endpoints --machine desktop"; do
    # shellcheck disable=SC2086
    expect 0 "options in the order $order" "$audiodiag" $order
    cmp -s "$dir/before.json" "$dir/out" || fail "$order: the report differs"
done
check "desktop endpoints" 'any(e["id"].endswith("0e1f2a3b4c11}") for e in r["endpoints"]["active"])'
expect 0 "options after the command's own" "$audiodiag" tone "$dir/g.wav" --seconds 0.1 --json \
    --rate 8000 --machine desktop
check "tone with trailing --json" 'r["blocks"] == 800'
expect 0 "machines --json" "$audiodiag" machines --json
check "machines" '[m["name"] for m in r["machines"]] == ["desktop", "empty", "laptop"]'
expect 0 "machine after the endpoint" "$audiodiag" endpoint speakers --machine desktop --json
check "desktop speakers" 'r["name"] == "Speakers (Realtek High Definition Audio)"'
expect 2 "a global option without its value" "$audiodiag" endpoints --machine
expect 2 "an unknown option after the command" "$audiodiag" endpoints --jsn
expect 2 "an extra argument" "$audiodiag" endpoints extra

# Endpoints by name: exact names before prefixes, prefixes like id prefixes, any case.
speakers="{0.0.0.00000000}.{3b1f6d2a-7c4e-4a8b-9f21-5d6e7a8b9c01}"
for name in "Speakers (Realtek" "speakers (REALTEK high" "{0.0.0.00000000}.{3B1F" 3b1f6d; do
    expect 0 "endpoint $name" "$audiodiag" endpoint "$name" --json
    check "endpoint $name" "r['id'] == '$speakers'"
done
expect 0 "an exact type before a longer name" "$audiodiag" endpoint microphone --json
check "microphone" 'r["name"] == "Microphone (USB Headset)"'
for ambiguous in speakers "Speakers (" "{0.0.1"; do
    expect 2 "ambiguous $ambiguous" "$audiodiag" endpoint "$ambiguous"
    python3 - "$dir/err" "$ambiguous" <<'PY' || fail "ambiguous $ambiguous: $(cat "$dir/err")"
import re, sys
text = open(sys.argv[1]).read()
assert text.endswith("\n"), "the list ends without a newline"
lines = text.splitlines()
assert lines[0] == f'audiodiag: "{sys.argv[2]}" could be any of:', lines[0]
candidates = lines[1:]
assert len(candidates) >= 2, candidates
for line in candidates:
    assert re.fullmatch(r"  \{0\.0\.[01]\.00000000\}\.\{[0-9a-f-]{36}\}  .+ \(.+\)", line), line
PY
done

# Jack values read as the names the machine format uses, in text; JSON has both.
expect 0 "jacks in text" "$audiodiag" endpoint "Speakers (Realtek"
for line in "connection_type: AtapiInternal" "geo_location: ATAPI" "gen_location: Internal" \
    "port_connection: IntegratedDevice"; do
    has "$dir/out" "jacks in text" "^    $line\$"
done
lacks "$dir/out" "jacks in text" "_name"
expect 0 "jacks in JSON" "$audiodiag" endpoint headphones --json
check "jacks in JSON" 'r["jacks"] == [{"channel_mapping": "0x00000003", "color": "#B3C98C",
    "connection_type": 1, "connection_type_name": "3Point5mm", "geo_location": 3,
    "geo_location_name": "Left", "gen_location": 0, "gen_location_name": "PrimaryBox",
    "port_connection": 0, "port_connection_name": "Jack", "is_connected": True}]'

echo "cli: ok"
