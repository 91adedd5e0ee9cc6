#!/usr/bin/env python3
"""audiodiag shows a bundled machine's sound cards truthfully, as the description makes
them: one card per adapter with endpoints, capture-led adapters first; each endpoint once,
with its state, node type and what it physically is; each card's connector map holding
every connector its endpoints reach, once, with the physical links the description wires
and internal links inside one device; the map as Graphviz that dot renders; every
endpoint's volume path and every card's input selectors readable, text and JSON, with
nothing on stderr. Usage: cards_match_machine.py AUDIODIAG MACHINES_DIR NAME"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

audiodiag, machines, name = sys.argv[1:4]
description = json.load(open(f"{machines}/{name}.json"))
environment = {k: v for k, v in os.environ.items() if k not in ("LIBAUDIO_LOG", "LIBAUDIO_MACHINE")}


def fail(message):
    sys.exit(f"FAIL ({name}): {message}")


def run(*args, json_output=True):
    command = [audiodiag, "--machine", name, *args] + (["--json"] if json_output else [])
    done = subprocess.run(command, capture_output=True, text=True, env=environment)
    if done.returncode != 0 or done.stderr:
        fail(f"{' '.join(args)}: exit {done.returncode}, stderr {done.stderr!r}")
    return json.loads(done.stdout) if json_output else done.stdout


adapters = [dict(a) for a in description.get("adapters", [])]
for index, adapter in enumerate(adapters):
    adapter.setdefault("instance_id", f"ROOT\\MEDIA\\{index:04d}")
    adapter.setdefault("enumerator", adapter["instance_id"].split("\\")[0].upper())
devices = {d["id"].lower(): d for d in description.get("devices", [])}
endpoints = description.get("endpoints", [])
for e in endpoints:
    e.setdefault("adapter", adapters[0]["instance_id"] if adapters else "")
    e.setdefault("flow", "render")
    e.setdefault("state", "active")
    e.setdefault("topology_device", e["id"])

# Connections as the loader completes them: written on one side, paired on both.
wires = {}
for device in description.get("devices", []):
    for local, connector in enumerate(device.get("connectors", [])):
        other = connector.get("connected_to")
        if other:
            a = (device["id"].lower(), connector.get("id", local))
            b = (other["device"].lower(), other["connector"])
            wires[a], wires[b] = b, a


def connector_of(device_id, local):
    for index, connector in enumerate(devices[device_id]["connectors"]):
        if connector.get("id", index) == local:
            return connector
    fail(f"no connector {local} in {device_id}")


def partner(endpoint):
    """The adapter pin that the endpoint's own connector is wired to, if any."""
    own = devices.get(endpoint["topology_device"].lower())
    if not own or not own.get("connectors"):
        return None
    wire = wires.get((own["id"].lower(), own["connectors"][0].get("id", 0)))
    return connector_of(*wire) if wire else None


# ---- cards: grouping, order, ids, bus and endpoints
shown = run("cards")["cards"]
text = run("cards", json_output=False)
order = []  # adapters as their first capture endpoint, then their first render one, meets them
for flow in ("capture", "render"):
    for e in endpoints:
        if e["flow"] == flow and e["adapter"] not in order:
            order.append(e["adapter"])
if [c["instance_id"] for c in shown] != order:
    fail(f"cards {[c['instance_id'] for c in shown]}, expected {order}")
listed = {row["id"].lower(): row for rows in run("endpoints")["endpoints"].values() for row in rows}
speaker_types = {"SPEAKER", "DESKTOP_SPEAKER", "ROOM_SPEAKER", "COMMUNICATION_SPEAKER",
                 "LOW_FREQUENCY_EFFECTS_SPEAKER"}
for card in shown:
    adapter = next(a for a in adapters if a["instance_id"] == card["instance_id"])
    expected = {"id": "{1}." + adapter["instance_id"], "enumerator": adapter["enumerator"],
                "name": adapter.get("friendly_name", "Audio Device"),
                "parent_id": adapter.get("parent_instance_id") or None}
    for field, value in expected.items():
        if card[field] != value:
            fail(f"card {card['instance_id']} {field}: shown {card[field]!r}, described {value!r}")
    if card["name"] not in text or card["id"] not in text:
        fail(f"the text lacks card {card['name']}")
    for side, flow in (("playback", "render"), ("record", "capture")):
        mine = [e for e in endpoints if e["adapter"] == adapter["instance_id"] and e["flow"] == flow]
        if [r["id"].lower() for r in card[side]] != [e["id"].lower() for e in mine]:
            fail(f"card {card['name']} {side}: {[r['id'] for r in card[side]]}")
        for row, e in zip(card[side], mine):
            if row["state"] != e["state"] or row["node_type"] != listed[e["id"].lower()]["node_type"]:
                fail(f"{e['id']}: state {row['state']}, node type {row['node_type']}")
            # What the endpoint is, read off the description by the classification's rules.
            pin = partner(e) or {}
            jacks = pin.get("jacks", [])
            node = row["node_type"]
            c = row["classification"]
            kind = "speaker" if flow == "render" else "microphone"
            facts = {
                "virtual": adapter["enumerator"] == "ROOT",
                "active": e["state"] == "active",
                "external_analog_jack": any(j.get("connection_type", "Unknown").lower()
                                            in ("3point5mm", "quarter", "rca") for j in jacks),
                f"usb_{kind}": adapter["enumerator"] == "USB" and node == kind.upper(),
            }
            if flow == "render" and node not in speaker_types:
                facts["internal_speaker"] = False
            if flow == "capture" and node == "MICROPHONE":
                facts["internal_microphone"] = False
            for key, value in facts.items():
                if c[key] != value:
                    fail(f"{e['id']} {key}: shown {c[key]}, described {value}")
            if adapter["enumerator"] == "ROOT" and c[f"integrated_{kind}"]:
                fail(f"{e['id']}: a virtual endpoint is never integrated")

# ---- topology of each card, by each name of the card
dot = shutil.which("dot")
scratch = tempfile.mkdtemp()
for card in shown:
    topology = run("topology", card["instance_id"])
    if topology["card"]["id"] != card["id"]:
        fail(f"topology of {card['instance_id']} is {topology['card']['id']}")
    mine = [e for e in endpoints if e["adapter"] == card["instance_id"]]
    # Every device the endpoints reach along the wires, and all their connectors.
    reach = [e["topology_device"].lower() for e in mine if e["topology_device"].lower() in devices]
    for device_id in reach:
        for local, connector in enumerate(devices[device_id].get("connectors", [])):
            wire = wires.get((device_id, connector.get("id", local)))
            if wire and wire[0] not in reach:
                reach.append(wire[0])
    expected = {(d, devices[d]["connectors"][i].get("id", i))
                for d in reach for i in range(len(devices[d].get("connectors", [])))}
    entries = topology["connectors"]
    seen = {}
    for entry in entries:
        match = re.fullmatch(r"(.*)/([0-9a-f]{8})", entry["global_id"], re.IGNORECASE)
        if not match or match.group(1).lower() != entry["device"].lower():
            fail(f"{entry['global_id']} is not a connector of {entry['device']}")
        key = (entry["device"].lower(), int(match.group(2), 16))
        if key in seen:
            fail(f"{entry['global_id']} is in the map twice")
        seen[key] = entry
    if set(seen) != expected:
        fail(f"card {card['name']}: map {sorted(seen)} differs from {sorted(expected)}")
    inactive = {e["topology_device"].lower() for e in endpoints if e["state"] != "active"}
    for key, entry in seen.items():
        # The platform gives no partner on the far side of an endpoint that is not active.
        wire = wires.get(key)
        wire = wire if wire and wire[0] not in inactive else None
        if entry["connected"] != bool(wire):
            fail(f"{entry['global_id']}: connected {entry['connected']}, described {bool(wire)}")
        if wire and (entry["physical_link"] is None or
                     entries[entry["physical_link"]]["global_id"] != seen[wire]["global_id"]):
            fail(f"{entry['global_id']}: physical link to the wrong connector")
        for link in entry["internal_links"]:
            other = entries[link]
            if other["device"] != entry["device"] or entry["index"] not in other["internal_links"]:
                fail(f"{entry['global_id']}: internal link {link} is not mutual inside one device")
    topology_text = run("topology", card["id"], json_output=False)
    for entry in entries:
        if entry["global_id"] not in topology_text:
            fail(f"the text map lacks {entry['global_id']}")
    if dot:
        graph = f"{scratch}/map.dot"
        run("topology", card["name"], "--dot", graph)
        svg = subprocess.run([dot, "-Tsvg", graph], capture_output=True, text=True)
        if svg.returncode != 0 or svg.stderr:
            fail(f"dot refused the graph of {card['name']}: {svg.stderr}")
        nodes = svg.stdout.count('class="node"')
        outside = sum(1 for e in entries if e["connected"] and e["physical_link"] is None)
        if nodes != len(entries) + outside:
            fail(f"the graph of {card['name']} draws {nodes} nodes for {len(entries)} connectors")
        # Each link once, however many entries record it.
        links = {frozenset((e["index"], other)) for e in entries
                 for other in e["internal_links"] + [e["physical_link"]] if other is not None}
        edges = svg.stdout.count('class="edge"')
        if edges != len(links) + outside:
            fail(f"the graph of {card['name']} draws {edges} edges for {len(links)} links")
    # The recording multiplexers: every input links into its selector, one at most is chosen.
    selectors = run("input-selectors", card["instance_id"])
    run("input-selectors", card["instance_id"], json_output=False)
    for s in selectors["selectors"]:
        if sum(i["selected"] for i in s["inputs"]) != (0 if s["selected"] is None else 1):
            fail(f"{s['name']}: the selection is not one of its inputs")
        if s["device"].lower() not in [d for d in reach]:
            fail(f"{s['name']} lies on {s['device']}, which the card does not reach")

# ---- every endpoint's volume path: ranges hold the levels, each node once
for e in endpoints:
    path = run("volume-path", e["id"])
    run("volume-path", e["id"], json_output=False)
    if path["endpoint"]["id"].lower() != e["id"].lower():
        fail(f"volume path of {e['id']} names {path['endpoint']['id']}")
    for node in path["nodes"]:
        for channel in node["channels"]:
            if not channel["min_db"] <= channel["level_db"] <= channel["max_db"]:
                fail(f"{e['id']} node {node['node']}: level outside its range")
# ---- watch: a machine without a script shows what it watches, and nothing happens
started = run("watch", "--seconds", "0.2", json_output=False).splitlines()
count = sum(len(c["playback"]) + len(c["record"]) for c in shown)
if len(started) != 1 or not started[0].startswith(f"watching {len(shown)} sound card"):
    fail(f"watch printed {started}")
done = subprocess.run([audiodiag, "--machine", name, "watch", "--seconds", "0.2", "--json"],
                      capture_output=True, text=True, env=environment)
lines = done.stdout.splitlines()
if done.returncode or done.stderr or len(lines) != 1 or json.loads(lines[0]) != {
        "time_s": 0.0, "event": "watching", "cards": len(shown), "endpoints": count}:
    fail(f"watch --json: exit {done.returncode}, {done.stdout!r} {done.stderr!r}")
print(f"{name}: {len(shown)} cards match the description")
