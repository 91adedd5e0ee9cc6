#!/usr/bin/env python3
"""Prints libAudio's rate as a fraction of its reference for each pair of benchmarks, from
the median aggregates of a JSON report:
    libaudio_bench --benchmark_out=bench.json --benchmark_out_format=json
    bench/compare.py bench.json
A ratio above 1 means libAudio is faster than the reference."""
import json
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


if __name__ == "__main__":
    main()
