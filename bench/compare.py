#!/usr/bin/env python3
"""Prints libAudio's rate as a fraction of its reference for each pair of benchmarks, from
the median aggregates of a JSON report:
    libaudio_bench --benchmark_out=bench.json --benchmark_out_format=json
    bench/compare.py bench.json
A ratio above 1 means libAudio is faster than the reference. Benchmarks run at several sizes
show their time per size, per endpoint and the growth exponent between sizes."""
import json
import math
import sys

# (label, libAudio benchmark, reference benchmark), names without the run settings suffix.
PAIRS = [
    ("tone mono", "BM_Tone_libAudio_createSinusoid/channels:1", "BM_Tone_baseline_sinLoop/channels:1"),
    ("tone stereo", "BM_Tone_libAudio_createSinusoid/channels:2", "BM_Tone_baseline_sinLoop/channels:2"),
    ("mean+stdDev", "BM_Stats_libAudio_meanStdDev", "BM_Stats_baseline_streamingSum"),
    ("WAV write", "BM_Wav_libAudio_write", "BM_Wav_sndfile_write"),
    ("WAV read", "BM_Wav_libAudio_read", "BM_Wav_sndfile_read"),
]


def rate(row):
    return row.get("items_per_second") or row.get("bytes_per_second")


def medians(report):
    found = {}
    for row in report["benchmarks"]:
        if row.get("aggregate_name", "median") != "median":
            continue
        name = row.get("run_name", row["name"]).split("/min_time:")[0]
        found[name] = row
    return found


def human(row):
    value = rate(row)
    unit = "items/s" if "items_per_second" in row else "B/s"
    for prefix, scale in (("G", 1e9), ("M", 1e6), ("k", 1e3)):
        if value >= scale:
            return "%.3g %s%s" % (value / scale, prefix, unit)
    return "%.3g %s" % (value, unit)


# Benchmarks run at several machine sizes (the argument: endpoints), whose cost should grow
# no faster than n log n.
SCALING = [("card startup", "BM_CardStartup_libAudio", "BM_CardStartup_platformOnly")]


def milliseconds(row):
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[row.get("time_unit", "ns")]
    return row["real_time"] * scale


def print_scaling(rows):
    for label, ours, theirs in SCALING:
        sizes = sorted(int(name.split("/")[1]) for name in rows if name.startswith(ours + "/"))
        if not sizes:
            print("%s: missing from the report" % label)
            continue
        print("\n%s: time per machine size (median), against the platform calls alone" % label)
        print("%10s %12s %16s %12s %14s" % ("endpoints", "libAudio", "per endpoint", "vs platform",
                                            "growth"))
        previous = None
        for n in sizes:
            ms = milliseconds(rows["%s/%d" % (ours, n)])
            reference = rows.get("%s/%d" % (theirs, n))
            ratio = "%12.1f" % (ms / milliseconds(reference)) if reference else "%12s" % "-"
            # The exponent k of n^k between this size and the one before: 1 is linear,
            # n log n is a little above 1 (1.18 from 120 to 480).
            growth = ("%14.2f" % (math.log(ms / previous[1]) / math.log(n / previous[0]))
                      if previous else "%14s" % "-")
            print("%10d %10.2f ms %13.1f us %s %s" % (n, ms, ms * 1e3 / n, ratio, growth))
            previous = (n, ms)


def main():
    with open(sys.argv[1]) as f:
        rows = medians(json.load(f))
    print("%-12s %18s %18s %8s" % ("", "libAudio", "reference", "ratio"))
    for label, ours, theirs in PAIRS:
        if ours in rows and theirs in rows:
            a, b = rows[ours], rows[theirs]
            print("%-12s %18s %18s %8.2f" % (label, human(a), human(b), rate(a) / rate(b)))
        else:
            print("%-12s missing from the report" % label)
    print_scaling(rows)


if __name__ == "__main__":
    main()
