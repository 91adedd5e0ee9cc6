#!/usr/bin/env python3
"""audiodiag shows a bundled machine truthfully: every endpoint of the description, with
its flow, state, type, adapter, form factor, volume, jacks and default role, and nothing
else. Usage: endpoints_match_machine.py AUDIODIAG MACHINES_DIR NAME"""
import json
import subprocess
import sys

audiodiag, machines, name = sys.argv[1:4]
description = json.load(open(f"{machines}/{name}.json"))


def run(*args):
    out = subprocess.run([audiodiag, "--machine", name, "--json", *args], check=True,
                         capture_output=True, text=True).stdout
    return json.loads(out)


def fail(message):
    sys.exit(f"FAIL ({name}): {message}")


adapters = {a["instance_id"]: a for a in description.get("adapters", [])}
devices = {d["id"]: d for d in description.get("devices", [])}
listed = {row["id"].lower(): row for rows in run("endpoints")["endpoints"].values()
          for row in rows}
described = {e["id"].lower(): e for e in description.get("endpoints", [])}
if set(listed) != set(described):
    fail(f"endpoints differ: {sorted(set(listed) ^ set(described))}")


def console_default(flow):
    chosen = description.get("defaults", {}).get(flow)
    if isinstance(chosen, str):
        return chosen.lower()
    if isinstance(chosen, dict) and "console" in chosen:
        return chosen["console"].lower()
    active = [e["id"].lower() for e in description["endpoints"]
              if e.get("flow", "render") == flow and e.get("state", "active") == "active"]
    return active[0] if active else ""


def partner_jacks(endpoint):
    """The jacks on the adapter pin that the endpoint's own connector is wired to."""
    own = devices.get(endpoint.get("topology_device", endpoint["id"]))
    if not own or not own.get("connectors"):
        return 0
    wire = own["connectors"][0].get("connected_to")
    if not wire:
        return 0
    pin = devices[wire["device"]]["connectors"][wire["connector"]]
    return len(pin.get("jacks", []))


for key, endpoint in described.items():
    row = listed[key]
    adapter = adapters[endpoint["adapter"]]
    expected = {
        "flow": endpoint.get("flow", "render"),
        "state": endpoint.get("state", "active"),
        "endpoint_type": endpoint.get("description", ""),
        "adapter": adapter.get("friendly_name", ""),
        "form_factor": endpoint.get("form_factor", "UnknownFormFactor"),
        "enumerator": adapter.get("enumerator", adapter["instance_id"].split("\\")[0]),
    }
    for field, value in expected.items():
        if row[field].lower() != value.lower():
            fail(f"{key} {field}: shown {row[field]!r}, described {value!r}")

    detail = run("endpoint", endpoint["id"])
    if f"Device ID {endpoint['id']}" not in detail["properties"]:
        fail(f"{key}: property record lacks its id")
    volume = endpoint.get("volume", {})
    levels = volume.get("levels_db")
    shown = [c["level_db"] for c in detail["volume"]["channels"]]
    if levels is not None and any(abs(a - b) > 1e-4 for a, b in zip(levels, shown, strict=True)):
        fail(f"{key}: levels shown {shown}, described {levels}")
    if "range" in volume and abs(detail["volume"]["range"]["min_db"] - volume["range"]["min_db"]) > 1e-4:
        fail(f"{key}: volume range differs")
    if detail["volume"]["muted"] != volume.get("muted", False):
        fail(f"{key}: mute differs")
    if len(detail["jacks"]) != partner_jacks(endpoint):
        fail(f"{key}: {len(detail['jacks'])} jacks shown, {partner_jacks(endpoint)} described")
    is_default = key == console_default(expected["flow"]) and expected["state"] == "active"
    if detail["default"] != is_default:
        fail(f"{key}: default shown {detail['default']}, described {is_default}")

print(f"{name}: {len(described)} endpoints match the description")
