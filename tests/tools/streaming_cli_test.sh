#!/usr/bin/env bash
# audiodiag play, record and loopback on the default (laptop) machine: the routes of the
# machine decide what a capture endpoint hears. Exit 0 on success with nothing on stderr,
# 1 when the operation or the test fails, 2 on misuse, and a message on stderr for every
# failure. Usage: streaming_cli_test.sh AUDIODIAG MACHINES_DIR
source "$(dirname "$0")/common.sh"

# Endpoint ids by form factor, as the endpoint list reports them.
expect 0 "endpoints" "$audiodiag" --json endpoints
id_of() { # flow form-factor
    python3 - "$dir/out" "$1" "$2" <<'PY'
import json, sys
rows = json.load(open(sys.argv[1]))["endpoints"]["active"]
print(next(e["id"] for e in rows if e["flow"] == sys.argv[2] and e["form_factor"] == sys.argv[3]))
PY
}
headphones=$(id_of render Headphones) || fail "no headphones"
headset_mic=$(id_of capture Headset) || fail "no headset microphone"
hdmi=$(id_of render DigitalAudioDisplayDevice) || fail "no HDMI output"
speakers_id=$(id_of render Speakers) || fail "no speakers"
speakers="Speakers (Realtek High Definition Audio)"
mic_array="Microphone Array (Realtek High Definition Audio)"

# The default loopback: internal speakers heard by the internal microphone array.
expect 0 "default loopback" "$audiodiag" --json loopback
check "default loopback" 'r["result"] == "pass" and abs(r["measured_frequency_hz"] - 1000) < 20'
check "default endpoints" \
    'r["render"]["name"].startswith("Speakers (Realtek") and r["capture"]["name"].startswith("Microphone Array")'
check "default level" '-60 < r["level_dbfs"] < -3 and r["std_dev"] > 0'

# The loopback cable from the headphone jack to the headset microphone, both interfaces.
for api in "" --legacy; do
    expect 0 "cable loopback $api" "$audiodiag" --json loopback --play "$headphones" \
        --record "$headset_mic" --freq 440 --seconds 0.5 $api
    check "cable loopback $api" \
        'r["result"] == "pass" and abs(r["measured_frequency_hz"] - 440) < 440 * 0.02'
done

# No route between these: the microphone hears its own noise at most.
expect 1 "loopback without route" "$audiodiag" --json loopback --play "$hdmi" \
    --record "$headset_mic" --seconds 0.5
check "loopback without route" 'r["result"] == "fail" and r["failures"]'
# A level threshold above what arrives fails the test although the tone is right.
expect 1 "level below threshold" "$audiodiag" loopback --min-level -1 --seconds 0.5

# Misuse.
expect 2 "play without endpoint" "$audiodiag" play
expect 2 "play on a capture endpoint" "$audiodiag" play "$mic_array"
expect 2 "record from a render endpoint" "$audiodiag" record "$speakers" "$dir/x.wav"
expect 2 "record without file" "$audiodiag" record "$mic_array"
expect 2 "unknown endpoint" "$audiodiag" loopback --play nothing-like-this
expect 2 "loopback frequency above Nyquist" "$audiodiag" loopback --freq 30000
expect 2 "negative tolerance" "$audiodiag" loopback --tolerance -1
expect 2 "amplitude too large" "$audiodiag" play "$speakers" --amp 40000

# Play once and looped, through both interfaces.
for api in "" --legacy; do
    expect 0 "play $api" "$audiodiag" --json play "$headphones" --seconds 0.3 $api
    check "play $api" 'r["channels"] == 2 and r["sample_rate"] == 48000 and not r["looped"]'
    expect 0 "play looped $api" "$audiodiag" play "$speakers" --loop --seconds 0.3 --freq 500 $api
done

# Record writes a WAV file that wav-info reads back, measures it and can plot it.
expect 0 "record" "$audiodiag" --json record "$mic_array" "$dir/r.wav" --seconds 0.5 \
    --plot "$dir/r.svg"
check "record report" 'len(r["measurements"]) == 2 and r["plot"].endswith("r.svg")'
expect 0 "wav-info of the recording" "$audiodiag" --json wav-info "$dir/r.wav"
check "recording format" \
    'r["blocks"] == 24000 and r["format"]["channels"] == 2 and r["format"]["bits_per_sample"] == 16'
python3 -c 'import sys, xml.etree.ElementTree as E; assert E.parse(sys.argv[1]).getroot().tag.endswith("svg")' \
    "$dir/r.svg" || fail "the record plot is no SVG"
expect 1 "record to an unwritable path" "$audiodiag" record "$mic_array" "$dir/no/such/x.wav" \
    --seconds 0.1

# A loopback keeps its recording and draws it, with the peak marked.
expect 0 "loopback with plot" "$audiodiag" --json loopback --seconds 0.5 --plot "$dir/l.svg" \
    --out "$dir/l.wav"
python3 - "$dir/l.svg" <<'PY' || fail "the loopback plot"
import sys, xml.etree.ElementTree as E
root = E.parse(sys.argv[1]).getroot()
texts = " ".join(t.text or "" for t in root.iter("{http://www.w3.org/2000/svg}text"))
assert "Waveform" in texts and "Magnitude spectrum" in texts, texts
assert "peak 1000" in texts or "peak 999" in texts, texts
PY
expect 0 "wav-info of the loopback" "$audiodiag" --json wav-info "$dir/l.wav"
check "loopback recording" 'r["blocks"] == 24000'

# A machine without endpoints has nothing to test.
expect 1 "loopback on an empty machine" "$audiodiag" --machine empty loopback

# An endpoint without a legacy wave device number: its number would be WAVE_MAPPER, the
# default device. --legacy refuses it before anything streams; the audio client needs no
# such number.
nolegacy=$(machine_with nolegacy "m['faults'] = [
    {'operation': 'waveOutMessage', 'target': '$headphones', 'sticky': True},
    {'operation': 'waveInMessage', 'target': '$headset_mic', 'sticky': True}]")
expect 0 "no legacy number" "$audiodiag" --machine "$nolegacy" --json endpoint "$headphones"
check "no legacy number" 'r["legacy_wave_id"] is None'
expect 1 "play --legacy without a legacy number" "$audiodiag" --machine "$nolegacy" \
    play "$headphones" --legacy --seconds 0.2 -vv --log "$dir/play.log"
has "$dir/err" "play --legacy without a legacy number" "Headphones .* has no legacy wave device"
lacks "$dir/play.log" "play --legacy without a legacy number" "AudioRendererLegacyWave"
expect 1 "record --legacy without a legacy number" "$audiodiag" --machine "$nolegacy" \
    record "$headset_mic" "$dir/nolegacy.wav" --legacy --seconds 0.2 --log "$dir/record.log" -vv
has "$dir/err" "record --legacy without a legacy number" "Headset Microphone .* has no legacy wave"
lacks "$dir/record.log" "record --legacy without a legacy number" "AudioCaptureLegacyWave"
[ ! -e "$dir/nolegacy.wav" ] || fail "record --legacy without a legacy number wrote a file"
# Either side of a loopback without its number is refused.
expect 1 "loopback --legacy, the render side without a legacy number" "$audiodiag" \
    --machine "$nolegacy" loopback --play "$headphones" --legacy --seconds 0.2
has "$dir/err" "loopback --legacy, render side" "Headphones .* has no legacy wave device"
expect 1 "loopback --legacy, the capture side without a legacy number" "$audiodiag" \
    --machine "$nolegacy" loopback --record "$headset_mic" --legacy --seconds 0.2
has "$dir/err" "loopback --legacy, capture side" "Headset Microphone .* has no legacy wave device"
expect 0 "the audio client without a legacy number" "$audiodiag" --machine "$nolegacy" --json \
    loopback --play "$headphones" --record "$headset_mic" --seconds 0.5
check "the audio client without a legacy number" 'r["result"] == "pass"'

echo "streaming cli: ok"
