#!/usr/bin/env python3
"""audiodiag shows a bundled machine truthfully: every endpoint of the description, with
its flow, state, type, adapter, form factor, volume, jacks (with their values' names) and
default role, and nothing else, with nothing on stderr.
Usage: endpoints_match_machine.py AUDIODIAG MACHINES_DIR NAME"""
import json
import os
import subprocess
import sys

audiodiag, machines, name = sys.argv[1:4]
description = json.load(open(f"{machines}/{name}.json"))


def fail(message):
    sys.exit(f"FAIL ({name}): {message}")


# As a user runs it: the library's log as audiodiag handles it.
environment = {k: v for k, v in os.environ.items() if k not in ("LIBAUDIO_LOG", "LIBAUDIO_MACHINE")}


def run(*args):
    done = subprocess.run([audiodiag, "--machine", name, "--json", *args], check=True,
                          capture_output=True, text=True, env=environment)
    if done.stderr:
        fail(f"{' '.join(args)} succeeded with this on stderr: {done.stderr}")
    return json.loads(done.stdout)


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
        return []
    wire = own["connectors"][0].get("connected_to")
    if not wire:
        return []
    pin = devices[wire["device"]]["connectors"][wire["connector"]]
    return pin.get("jacks", [])


# The jack values the bundled machines leave out, by the names they write.
JACK_DEFAULTS = {"connection_type": "Unknown", "geo_location": "Rear",
                 "gen_location": "PrimaryBox", "port_connection": "Jack"}


def check_jack_names(key, shown, described):
    """Each value is shown as a number with the machine format's name beside it."""
    for field, default in JACK_DEFAULTS.items():
        value = described.get(field, default)
        if not isinstance(shown[field], int):
            fail(f"{key} jack {field}: {shown[field]!r} is no number")
        if isinstance(value, str) and (shown[f"{field}_name"] or "").lower() != value.lower():
            fail(f"{key} jack {field}: shown {shown[f'{field}_name']!r}, described {value!r}")


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
    jacks = partner_jacks(endpoint)
    if len(detail["jacks"]) != len(jacks):
        fail(f"{key}: {len(detail['jacks'])} jacks shown, {len(jacks)} described")
    for shown, described_jack in zip(detail["jacks"], jacks):
        check_jack_names(key, shown, described_jack)
    is_default = key == console_default(expected["flow"]) and expected["state"] == "active"
    if detail["default"] != is_default:
        fail(f"{key}: default shown {detail['default']}, described {is_default}")

print(f"{name}: {len(described)} endpoints match the description")
