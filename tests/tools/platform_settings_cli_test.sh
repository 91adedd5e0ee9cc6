#!/usr/bin/env bash
# audiodiag on machines whose settings stand in the way: endpoints that do not allow
# exclusive mode (play, record and loopback stream through the legacy wave devices and say
# which interface ran and why, in text and JSON) and a process without administrator rights
# (the commands that show endpoints refuse with one sentence instead of nameless endpoints).
# Usage: platform_settings_cli_test.sh AUDIODIAG MACHINES_DIR
source "$(dirname "$0")/common.sh"

speakers="{0.0.0.00000000}.{3b1f6d2a-7c4e-4a8b-9f21-5d6e7a8b9c01}"
headphones="{0.0.0.00000000}.{8e2a4c6d-1b3f-4d5e-a7c9-0f1e2d3c4b02}"
mic_array="{0.0.1.00000000}.{2c4e6a8b-5d7f-4b9c-a1e3-4f5a6b7c8d06}"
headset_mic="{0.0.1.00000000}.{6d8f0a2c-7e9b-4d1f-b3a5-5a6b7c8d9e07}"

# The internal speakers do not allow exclusive mode; every other endpoint does.
locked=$(machine_with locked "
for e in m['endpoints']:
    if e['id'] == '$speakers':
        e.setdefault('stream', {})['exclusive_mode_allowed'] = False")
reason='r["api_reason"].startswith("Speakers (Realtek High Definition Audio) does not allow exclusive mode")'

expect 0 "loopback on speakers without exclusive mode" "$audiodiag" --machine "$locked" --json \
    loopback --seconds 0.5
check "loopback on speakers without exclusive mode" \
    'r["result"] == "pass" and r["api"] == "legacy wave" and '"$reason"
expect 0 "loopback text" "$audiodiag" --machine "$locked" loopback --seconds 0.5
has "$dir/out" "loopback text names the interface" "^api: legacy wave$"
has "$dir/out" "loopback text says why" \
    '^api_reason: Speakers .* does not allow exclusive mode, .*"Allow applications to take exclusive control of this device"'
has "$dir/out" "loopback text passes" "^result: pass$"

expect 0 "play without exclusive mode" "$audiodiag" --machine "$locked" --json play "$speakers" \
    --seconds 0.2
check "play without exclusive mode" 'r["api"] == "legacy wave" and '"$reason"

# The other endpoints stream through the audio client, and say nothing more.
expect 0 "loopback elsewhere" "$audiodiag" --machine "$locked" --json loopback \
    --play "$headphones" --record "$headset_mic" --seconds 0.5
check "loopback elsewhere" \
    'r["result"] == "pass" and r["api"] == "audio client" and "api_reason" not in r'
expect 0 "record elsewhere" "$audiodiag" --machine "$locked" --json record "$mic_array" \
    "$dir/r.wav" --seconds 0.2
check "record elsewhere" 'r["api"] == "audio client" and "api_reason" not in r'
expect 0 "asked for the legacy devices" "$audiodiag" --machine "$locked" --json play \
    "$headphones" --seconds 0.2 --legacy
check "asked for the legacy devices" 'r["api"] == "legacy wave" and "api_reason" not in r'

# A capture endpoint without exclusive mode.
quiet=$(machine_with quiet "
for e in m['endpoints']:
    if e['id'] == '$mic_array':
        e.setdefault('stream', {})['exclusive_mode_allowed'] = False")
expect 0 "record without exclusive mode" "$audiodiag" --machine "$quiet" --json record \
    "$mic_array" "$dir/q.wav" --seconds 0.2
check "record without exclusive mode" \
    'r["api"] == "legacy wave" and r["api_reason"].startswith("Microphone Array")'

# Nothing to fall back on: the speakers have no legacy wave device either.
stuck=$(machine_with stuck "
m['faults'] = [{'operation': 'waveOutMessage', 'target': '$speakers', 'sticky': True}]
for e in m['endpoints']:
    if e['id'] == '$speakers':
        e.setdefault('stream', {})['exclusive_mode_allowed'] = False")
expect 1 "no exclusive mode and no legacy device" "$audiodiag" --machine "$stuck" play \
    "$speakers" --seconds 0.2
has "$dir/err" "no exclusive mode and no legacy device" \
    "does not allow exclusive mode, which the audio client needs, and Speakers .* has no legacy wave device"

# Without administrator rights, from the machine or from the environment.
user=$(machine_with user "m['elevated'] = False")
for how in "--machine $user" "--machine laptop"; do
    for command in "endpoints" "--json endpoints" "endpoint $speakers" "volume $speakers" \
        "play $speakers --seconds 0.2" "record $mic_array $dir/u.wav --seconds 0.2" \
        "loopback --seconds 0.2"; do
        if [ "$how" = "--machine laptop" ]; then
            expect 1 "$command without rights" env LIBAUDIO_ELEVATED=0 "$audiodiag" $how $command
        else
            expect 1 "$command without rights" "$audiodiag" $how $command
        fi
        [ "$(wc -l <"$dir/err")" = 1 ] || { cat "$dir/err" >&2; fail "$command: one line"; }
        has "$dir/err" "$command without rights" \
            "^audiodiag: this command must be run from an elevated \(administrator\) prompt"
        [ ! -s "$dir/out" ] || fail "$command without rights: something on stdout"
    done
done
[ ! -e "$dir/u.wav" ] || fail "record without rights wrote a file"
expect 0 "machines without rights" env LIBAUDIO_ELEVATED=0 "$audiodiag" machines

echo "platform settings cli: ok"
