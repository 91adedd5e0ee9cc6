#!/usr/bin/env bash
# audiodiag's sound card commands as a user meets them: cards named by any of their names,
# bad names and indices refused with exit 2 and one clear line, volume nodes and input
# selectors changed and read back, the connector map drawn, and watch showing a machine's
# scripted hot-plug events as they happen. Usage: cards_cli_test.sh AUDIODIAG MACHINES_DIR
source "$(dirname "$0")/common.sh"

realtek='HDAUDIO\FUNC_01&VEN_10EC&DEV_0269&SUBSYS_17AA21FA&REV_1002\4&1C0A5E&0&0001'
usb='USB\VID_046D&PID_0A38&MI_00\7&2A6B8E32&0&0000'
usb_parent='USB\VID_046D&PID_0A38\5&1B0F4E6C&0&2'
pci_parent='PCI\VEN_8086&DEV_9D70&SUBSYS_21FA17AA&REV_21\3&11583659&0&FB'
headphones='{0.0.0.00000000}.{8e2a4c6d-1b3f-4d5e-a7c9-0f1e2d3c4b02}'
usb_speakers='{0.0.0.00000000}.{4f6a8c0e-3b5d-4f7a-9c1e-2b4d6f8a0c04}'
usb_mic='{0.0.1.00000000}.{e1f3a5c7-9b0d-4e2f-8a4c-6b7c8d9e0f08}'
cable='{0.0.0.00000000}.{9a0b1c2d-4e5f-4a6b-8c7d-3e4f5a6b7c05}'

# misuse DESCRIPTION PATTERN COMMAND...: exit 2, one line on stderr that matches, naming
# the problem without the library's records.
misuse() {
    local what=$1 pattern=$2
    shift 2
    expect 2 "$what" "$@"
    has "$dir/err" "$what" "$pattern"
    lacks "$dir/err" "$what: no library log on misuse" "libAudio logged"
}

# ---- cards: what each endpoint is, in words and in JSON
expect 0 "cards" "$audiodiag" cards
has "$dir/out" "cards text" '^Realtek High Definition Audio$'
has "$dir/out" "cards text" '^      active, SPEAKER: internal speaker, integrated speaker$'
has "$dir/out" "cards text" '^      active, HEADPHONES: integrated speaker, external analog jack$'
has "$dir/out" "cards text" '^      active, MICROPHONE: integrated microphone, USB microphone$'
has "$dir/out" "cards text" '^      active, SPEAKER: virtual$'
lacks "$dir/out" "cards text: words, not numbers" 'state: [0-9]|true|false'
expect 0 "cards --json" "$audiodiag" cards --json
check "laptop cards" '[c["name"] for c in r["cards"]] == ["Realtek High Definition Audio",
    "USB Headset", "Intel(R) Display Audio", "Virtual Cable"]'
check "classification of the microphone array" 'r["cards"][0]["record"][0]["classification"] == {
    "internal_microphone": True, "integrated_microphone": True, "external_analog_jack": False,
    "usb_microphone": False, "virtual": False, "active": True}'
check "the headset jack" 'r["cards"][0]["record"][1]["classification"]["external_analog_jack"]
    and not r["cards"][0]["record"][1]["classification"]["integrated_microphone"]'
check "internal devices" 'r["cards"][2]["internal_devices"][0].endswith("\\hdmitopo")'
expect 0 "desktop cards" "$audiodiag" --machine desktop cards --json
check "an unplugged microphone" 'r["cards"][0]["record"][2]["state"] == "unplugged" and
    not r["cards"][0]["record"][2]["classification"]["active"]'
expect 0 "no cards" "$audiodiag" --machine empty cards
has "$dir/out" "no cards" '^no sound cards$'
expect 0 "no cards --json" "$audiodiag" --machine empty cards --json
check "no cards" 'r == {"cards": []}'

# Without administrator rights the endpoints have no names: refused in one sentence.
for command in cards "topology realtek" "volume-path cable" "input-selectors realtek" \
    "watch --seconds 1"; do
    # shellcheck disable=SC2086
    LIBAUDIO_ELEVATED=0 expect 1 "$command without rights" "$audiodiag" $command
    has "$dir/err" "$command without rights" "^audiodiag: this command must be run from an elevated"
    [ ! -s "$dir/out" ] || fail "$command without rights printed $(cat "$dir/out")"
done

# ---- a card by each of its names, any case, or a unique prefix of one
for name in "{1}.$realtek" "$realtek" "realtek high definition audio" "Realtek" \
    "{1}.hdaudio\\func_01&ven_10ec" "hdaudio\\func_01&VEN_10EC"; do
    expect 0 "card $name" "$audiodiag" topology "$name" --json
    check "card $name" 'r["card"]["name"] == "Realtek High Definition Audio"'
done
for name in "$usb_parent" "usb headset" "usb\\vid_046d&pid_0a38&mi" "{1}.USB"; do
    expect 0 "card $name" "$audiodiag" input-selectors "$name" --json
    check "card $name" "r['card']['name'] == 'USB Headset'"
done
# Shared names list the cards they fit, one a line.
for name in "$pci_parent" hdaudio "{1}.hdaudio" "{1}."; do
    expect 2 "ambiguous card $name" "$audiodiag" topology "$name"
    python3 - "$dir/err" "$name" <<'PY' || fail "ambiguous $name: $(cat "$dir/err")"
import re, sys
lines = open(sys.argv[1]).read().splitlines()
assert lines[0] == f'audiodiag: "{sys.argv[2]}" could be any of:', lines[0]
assert len(lines) >= 3, lines
for line in lines[1:]:
    assert re.fullmatch(r"  \{1\}\.\S+  .+", line), line
PY
done
misuse "unknown card" '^audiodiag: no sound card is "sound blaster" \(audiodiag cards lists them\)$' \
    "$audiodiag" topology "sound blaster"
misuse "empty card name" "an empty name" "$audiodiag" input-selectors ""
misuse "card on an empty machine" 'no sound card is "realtek"' "$audiodiag" --machine empty topology realtek
misuse "no card given" "card is required" "$audiodiag" topology

# ---- topology: the Realtek codec's map, and the Graphviz drawing
expect 0 "topology" "$audiodiag" topology realtek --json
check "connector map" 'len(r["connectors"]) == 10 and
    [d["kind"] for d in r["devices"]] == ["endpoint"] * 4 + ["internal"]'
check "the speaker pin" 'r["connectors"][4]["name"] == "Speaker" and
    r["connectors"][4]["node_type"] == "SPEAKER" and r["connectors"][4]["physical_link"] == 0 and
    r["connectors"][0]["physical_link"] == 4'
check "playback reaches both output pins" \
    'sorted(r["connectors"][8]["internal_links"]) == [4, 5] and r["connectors"][8]["name"] == "Playback"'
expect 0 "topology text" "$audiodiag" topology realtek
has "$dir/out" "topology text" '^  #4   Speaker +SPEAKER +physical #0  internal #8$'
has "$dir/out" "topology text" '^endpoint \{0\.0\.0\.00000000\}\.\{3b1f.*  Speakers \(Realtek High Definition Audio\)$'
expect 0 "topology --dot" "$audiodiag" topology "virtual cable" --dot "$dir/cable.dot"
has "$dir/out" "topology --dot" "^Graphviz graph written to $dir/cable.dot\$"
has "$dir/cable.dot" "dot file" '^graph connector_map \{$'
has "$dir/cable.dot" "dot: ids keep their backslashes" 'label="internal: \{2\}\.\\\\\\\\\?\\\\root#media'
expect 0 "topology --dot -" "$audiodiag" --machine desktop topology nvidia --dot -
has "$dir/out" "dot on stdout" '^  c0 -- c1 \[penwidth=2\];$'
if command -v dot >/dev/null; then
    for graph in "$dir/cable.dot" "$dir/out"; do
        dot -Tsvg "$graph" >"$dir/graph.svg" 2>"$dir/dot.err" || fail "dot refused $graph"
        [ ! -s "$dir/dot.err" ] || fail "dot warned: $(cat "$dir/dot.err")"
        has "$dir/graph.svg" "rendered graph" '<svg'
    done
else
    echo "dot not installed: the graphs are not rendered"
fi
expect 1 "dot to an unwritable place" "$audiodiag" topology realtek --dot "$dir/no/such/dir/x.dot"
has "$dir/err" "dot to an unwritable place" "cannot write $dir/no/such/dir/x.dot"

# ---- volume-path: nearest node first, set by number, refused outside its range
expect 0 "volume path" "$audiodiag" volume-path "Speakers (Realtek" --json
check "speaker path" '[(n["volume_node"], n["connector"], n["mute_node"]) for n in r["nodes"]] == [
    ("Speaker Volume", "Speaker", "Speaker Mute"), ("Headphone Volume", "Headphone", "Headphone Mute")]'
check "speaker levels" '[(c["level_db"], c["min_db"], c["max_db"], c["step_db"])
    for c in r["nodes"][0]["channels"]] == [(-6, -46.5, 0, 0.75)] * 2'
expect 0 "set a node" "$audiodiag" volume-path "Speakers (Realtek" --set-db -20.25 --node 1 --mute --json
check "set a node" '[c["level_db"] for c in r["nodes"][1]["channels"]] == [-20.25, -20.25] and
    r["nodes"][1]["muted"] and not r["nodes"][0]["muted"] and
    [c["level_db"] for c in r["nodes"][0]["channels"]] == [-6, -6]'
expect 0 "the only node needs no number" "$audiodiag" volume-path cable --set-db -3
has "$dir/out" "the only node" '^  channel 1: -3 dB \(range -65\.25 to 0 dB, step 0\.75 dB\)$'
expect 0 "volume path text" "$audiodiag" volume-path "Microphone Array"
has "$dir/out" "volume path text" '^node 0: Microphone Array Volume, beside connector Microphone Array \(MICROPHONE_ARRAY\)$'
has "$dir/out" "volume path text" '^  mute: Microphone Array Mute, not muted$'
expect 0 "a path without volume" "$audiodiag" --machine desktop volume-path "Realtek Digital" --json
check "no volume on S/PDIF" 'r["nodes"] == []'
expect 1 "set where there is no node" "$audiodiag" --machine desktop volume-path "Realtek Digital" --set-db -3
has "$dir/err" "no node" "has no hardware volume node on its signal paths"
expect 1 "above the range" "$audiodiag" volume-path "Speakers (Realtek" --set-db 6 --node 0
has "$dir/err" "above the range" '^audiodiag: node 0 \(Speaker Volume\) refused 6 dB'
misuse "node out of range" '^audiodiag: there is no node 2: the path has 2 volume nodes \(0-1\)$' \
    "$audiodiag" volume-path "Speakers (Realtek" --set-db -3 --node 2
misuse "which node" 'choose one with --node 0-1' "$audiodiag" volume-path "Speakers (Realtek" --set-db -3
misuse "dB not a number" "set-db" "$audiodiag" volume-path cable --set-db loud
misuse "dB not finite" 'finite number of decibels' "$audiodiag" volume-path cable --set-db nan
misuse "negative node" "node" "$audiodiag" volume-path cable --set-db -3 --node -1
misuse "node without a change" '^audiodiag: --node chooses the node' "$audiodiag" volume-path cable --node 0
misuse "mute and unmute" "excludes" "$audiodiag" volume-path cable --mute --unmute
misuse "unknown endpoint" 'no endpoint is "nothing"' "$audiodiag" volume-path nothing

# ---- input-selectors: the desktop codec's multiplexer, switched by number and by name
expect 0 "selectors" "$audiodiag" --machine desktop input-selectors realtek --json
check "selectors" 'len(r["selectors"]) == 1 and r["selectors"][0]["name"] == "Input Select" and
    [i["name"] for i in r["selectors"][0]["inputs"]] == ["Rear Microphone Mute", "Line In Mute",
    "Front Microphone Mute"] and r["selectors"][0]["selected"] == 0'
for choice in "Line In Mute:1" "front:2" "0:0" "LINE IN MUTE:1"; do
    expect 0 "select ${choice%:*}" "$audiodiag" --machine desktop input-selectors realtek \
        --select "${choice%:*}" --json
    check "select ${choice%:*}" "r['selectors'][0]['selected'] == ${choice#*:} and
        [i['selected'] for i in r['selectors'][0]['inputs']].count(True) == 1"
done
expect 0 "selectors text" "$audiodiag" --machine desktop input-selectors realtek --select 1
has "$dir/out" "selected in text" '^  \* 1  Line In Mute \(MUTE\)$'
has "$dir/out" "not selected in text" '^    0  Rear Microphone Mute \(MUTE\)$'
expect 0 "no selectors" "$audiodiag" --machine desktop input-selectors nvidia
has "$dir/out" "no selectors" '^NVIDIA High Definition Audio: no input selectors$'
expect 1 "select without a selector" "$audiodiag" --machine desktop input-selectors nvidia --select 0
has "$dir/err" "select without a selector" "has no input selector"
misuse "input out of range" '^audiodiag: there is no input 3: Input Select has 3 inputs$' \
    "$audiodiag" --machine desktop input-selectors realtek --select 3
misuse "unknown input" 'no input of Input Select is "tape"' \
    "$audiodiag" --machine desktop input-selectors realtek --select tape
misuse "selector out of range" 'there is no selector 1' \
    "$audiodiag" --machine desktop input-selectors realtek --select 0 --selector 1
misuse "selector without a choice" '^audiodiag: --selector chooses' \
    "$audiodiag" --machine desktop input-selectors realtek --selector 0
# An input name that fits two inputs lists both.
twins=$(machine_with twins "
for d in m['devices']:
    for s in d.get('subunits', []):
        if s['name'] == 'Headset Microphone Mute':
            s['name'] = 'Microphone Jack Mute'
    d['links'] = [[p.replace('Headset Microphone Mute', 'Microphone Jack Mute') for p in l]
                  if isinstance(l, list) else l for l in d.get('links', [])]")
misuse "ambiguous input" '^audiodiag: "microphone" could be any of:$' \
    "$audiodiag" --machine "$twins" input-selectors realtek --select microphone

# ---- watch: a scripted machine's hot-plug events, as they happen
hotplug=$(machine_with hotplug "m['events'] = [
    {'at_ms': 300, 'endpoint': '$headphones', 'state': 'unplugged'},
    {'at_ms': 500, 'remove': '$usb_speakers'}, {'at_ms': 500, 'remove': '$usb_mic'},
    {'at_ms': 700, 'add': '$usb_speakers'}, {'at_ms': 700, 'add': '$usb_mic'},
    {'at_ms': 900, 'endpoint': '$headphones', 'state': 'active'}]")
expect 0 "watch --json" "$audiodiag" --machine "$hotplug" watch --json --seconds 1.5
python3 - "$dir/out" <<'PY' || fail "watch --json: $(cat "$dir/out")"
import json, sys
events = [json.loads(line) for line in open(sys.argv[1])]
assert events[0] == {"time_s": 0.0, "event": "watching", "cards": 4, "endpoints": 8}, events[0]
got = [(e["event"], e.get("endpoint", {}).get("name"), e.get("state"), e["card"]["name"])
       for e in events[1:]]
realtek, usb = "Realtek High Definition Audio", "USB Headset"
want = [("endpoint_state", "Headphones (" + realtek + ")", "unplugged", realtek),
        ("endpoint_removed", "Speakers (USB Headset)", None, usb),
        ("endpoint_removed", "Microphone (USB Headset)", None, usb),
        ("card_removed", None, None, usb),
        ("card_added", None, None, usb),
        ("endpoint_added", "Speakers (USB Headset)", "active", usb),
        ("endpoint_added", "Microphone (USB Headset)", "active", usb),
        ("endpoint_state", "Headphones (" + realtek + ")", "active", realtek)]
assert got == want, got
assert events[1]["previous_state"] == "active" and events[-1]["previous_state"] == "unplugged"
times = [e["time_s"] for e in events[1:]]
# In time: each within a generous margin after its scripted moment, in order.
for t, at in zip(times, [0.3, 0.5, 0.5, 0.5, 0.7, 0.7, 0.7, 0.9]):
    assert at - 0.05 <= t <= at + 0.4, (t, at)
assert times == sorted(times)
PY
expect 0 "watch text" "$audiodiag" watch --machine "$hotplug" --count 4 --seconds 5
has "$dir/out" "watch text" '^watching 4 sound cards with 8 endpoints$'
has "$dir/out" "watch text" '^ +0\.[0-9]{3}s  endpoint unplugged  Headphones \(Realtek High Definition Audio\)  \{0\.0\.0\.00000000\}\.\{8e2a4c6d-1b3f-4d5e-a7c9-0f1e2d3c4b02\}  \(was active\)$'
has "$dir/out" "watch text" '^ +0\.[0-9]{3}s  card removed {8}USB Headset  \{1\}\.USB\\VID_046D'
[ "$(wc -l <"$dir/out")" = 5 ] || fail "watch --count 4 printed $(cat "$dir/out")"
lacks "$dir/out" "--count stops at four" "card added"
# A device plugged in that was not there at the start brings its card.
plugin=$(machine_with plugin "m['events'] = [{'at_ms': 300, 'add': '$usb_speakers'},
    {'at_ms': 300, 'add': '$usb_mic'}, {'at_ms': 500, 'remove': '$cable'}]")
expect 0 "a new card" "$audiodiag" --machine "$plugin" watch --json --count 5 --seconds 5
python3 - "$dir/out" <<'PY' || fail "a new card: $(cat "$dir/out")"
import json, sys
events = [json.loads(line) for line in open(sys.argv[1])]
assert events[0]["cards"] == 3 and events[0]["endpoints"] == 6, events[0]
got = sorted((e["event"], e.get("endpoint", {}).get("name")) for e in events[1:4])
assert events[1]["event"] == "card_added" and events[1]["card"]["name"] == "USB Headset", events[1]
assert got == [("card_added", None), ("endpoint_added", "Microphone (USB Headset)"),
               ("endpoint_added", "Speakers (USB Headset)")], got
assert [e["event"] for e in events[4:]] == ["endpoint_removed", "card_removed"], events[4:]
assert events[5]["card"]["name"] == "Virtual Cable", events[5]
PY
# Ctrl-C ends it cleanly: exit 0, nothing on stderr, what came before printed. A job of
# its own, where Ctrl-C has its usual effect (a script's background job would ignore it).
set -m
"$audiodiag" --machine "$hotplug" watch >"$dir/out" 2>"$dir/err" &
watcher=$!
set +m
sleep 0.6
kill -INT "$watcher"
for _ in $(seq 50); do
    kill -0 "$watcher" 2>/dev/null || break
    sleep 0.1
done
if kill -0 "$watcher" 2>/dev/null; then
    kill -KILL "$watcher"
    fail "watch goes on after Ctrl-C"
fi
wait "$watcher"
code=$?
[ "$code" = 0 ] || fail "watch interrupted: exit $code"
[ ! -s "$dir/err" ] || fail "watch interrupted: stderr $(cat "$dir/err")"
has "$dir/out" "watch interrupted" 'Ctrl-C stops$'
has "$dir/out" "watch interrupted" 'endpoint unplugged  Headphones'
expect 0 "nothing happens" "$audiodiag" --machine desktop watch --seconds 0.2
[ "$(cat "$dir/out")" = "watching 2 sound cards with 7 endpoints" ] || fail "quiet watch: $(cat "$dir/out")"
misuse "no time" 'seconds needs a time above 0' "$audiodiag" watch --seconds 0
misuse "no count" 'count needs at least 1' "$audiodiag" watch --count 0
misuse "watch with an argument" "not expected" "$audiodiag" watch now
# A script that cannot hold is refused when the machine loads.
broken=$(machine_with broken "m['events'] = [{'at_ms': 100, 'remove': '$cable'},
    {'at_ms': 200, 'endpoint': '$cable', 'state': 'active'}]")
misuse "broken script" 'events\[1\]\.endpoint: endpoint .* is not there at 200 ms' \
    "$audiodiag" --machine "$broken" watch --seconds 1

echo "cards cli: ok"
