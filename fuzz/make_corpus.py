#!/usr/bin/env python3
"""Writes the fuzzer's seed WAV files into fuzz/corpus/: a few tiny valid files that
reach the reader's main paths (plain PCM, extensible format, extra and odd-sized chunks)."""
import math
import pathlib
import struct


def chunk(fourcc: bytes, payload: bytes) -> bytes:
    pad = b"\0" if len(payload) % 2 else b""
    return fourcc + struct.pack("<I", len(payload)) + payload + pad


def riff(*chunks: bytes) -> bytes:
    body = b"WAVE" + b"".join(chunks)
    return b"RIFF" + struct.pack("<I", len(body)) + body


def fmt_plain(channels: int, bits: int, rate: int) -> bytes:
    align = channels * bits // 8
    return chunk(b"fmt ", struct.pack("<HHIIHH", 1, channels, rate, rate * align, align, bits))


def fmt_extensible(channels: int, bits: int, rate: int, mask: int) -> bytes:
    align = channels * bits // 8
    base = struct.pack("<HHIIHHH", 0xFFFE, channels, rate, rate * align, align, bits, 22)
    # KSDATAFORMAT_SUBTYPE_PCM: 00000001-0000-0010-8000-00aa00389b71
    guid = struct.pack("<IHH", 1, 0, 0x10) + bytes([0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71])
    return chunk(b"fmt ", base + struct.pack("<HI", bits, mask) + guid)


def tone16(count: int, channels: int) -> bytes:
    samples = []
    for i in range(count):
        value = int(12000 * math.sin(2 * math.pi * i / 8))
        samples.extend([value] * channels)
    return struct.pack("<%dh" % len(samples), *samples)


def main() -> None:
    out = pathlib.Path(__file__).resolve().parent / "corpus"
    out.mkdir(exist_ok=True)
    seeds = {
        "mono16.wav": riff(fmt_plain(1, 16, 8000), chunk(b"data", tone16(16, 1))),
        "stereo16_extensible_list.wav": riff(
            fmt_extensible(2, 16, 48000, 0x3),
            chunk(b"LIST", b"INFOISFT" + struct.pack("<I", 5) + b"seed\0\0"),
            chunk(b"data", tone16(8, 2)),
        ),
        "mono8_odd_chunks.wav": riff(
            chunk(b"junk", b"abc"),
            fmt_plain(1, 8, 11025),
            chunk(b"data", bytes(range(0x70, 0x85))),
        ),
    }
    for name, data in seeds.items():
        (out / name).write_bytes(data)


if __name__ == "__main__":
    main()
