#!/usr/bin/env bash
# What audiodiag writes besides its report: libAudio's log records kept back while a
# command succeeds, shown when it fails, live with -v, in a file with --log, or as
# LIBAUDIO_LOG says when only that is set; and a progress line only on a terminal.
# Usage: log_progress_cli_test.sh AUDIODIAG MACHINES_DIR
source "$(dirname "$0")/common.sh"
export LIBAUDIO_CLOCK=virtual
retry='ERROR libAudio\.AudioCaptureEx: [0-9]+ IAudioClient::Initialize returns 0x88890020'

# The default loopback passes although the library logs the capture formats it retries.
expect 0 "passing loopback" "$audiodiag" loopback
has "$dir/out" "passing loopback" "^result: pass$"
expect 0 "--log" "$audiodiag" loopback --log "$dir/pass.log"
has "$dir/pass.log" "--log" "$retry"
has "$dir/pass.log" "--log: information records" "^INFO libAudio\."
lacks "$dir/pass.log" "--log: trace only with -vv" "^DEBUG "
"$audiodiag" -v loopback --json >"$dir/out" 2>"$dir/err" || fail "-v loopback"
check "-v keeps the report on stdout" 'r["result"] == "pass"'
has "$dir/err" "-v" "$retry"
has "$dir/err" "-v" "^INFO libAudio\."
lacks "$dir/err" "-v: the records come once" "libAudio logged"
"$audiodiag" loopback --verbose --verbose --log "$dir/trace.log" >/dev/null 2>"$dir/err" ||
    fail "-vv loopback"
has "$dir/err" "-vv" "^DEBUG libAudio\.[A-Za-z]+: [0-9]+ Entering "
has "$dir/trace.log" "-vv --log" "^DEBUG libAudio\.[A-Za-z]+: [0-9]+ Entering "
expect 2 "--log to an unwritable place" "$audiodiag" --log "$dir/no/such/dir/x.log" endpoints
has "$dir/err" "--log to an unwritable place" "cannot write the log to .*x\.log"

# A loopback that fails shows what the library logged on the way, after the reason.
busy=$(machine_with busy "m['faults'] = [{'operation': 'Initialize', 'sticky': True,
    'target': '{0.0.1.00000000}.{2c4e6a8b-5d7f-4b9c-a1e3-4f5a6b7c8d06}',
    'results': ['0x8889000A']}]")
expect 1 "failing loopback" "$audiodiag" --machine "$busy" loopback
python3 - "$dir/err" <<'PY' || fail "failing loopback: $(cat "$dir/err")"
import re, sys
lines = open(sys.argv[1]).read().splitlines()
assert lines[0].startswith("audiodiag: cannot open Microphone Array"), lines[0]
assert lines[1] == "audiodiag: libAudio logged:", lines[1]
assert any(re.fullmatch(r"  ERROR libAudio\.AudioCaptureEx: \d+ IAudioClient::Initialize "
                        r"returns 0x8889000A", line) for line in lines[2:]), lines
PY
expect 1 "failing loopback with -v" "$audiodiag" --machine "$busy" loopback -v
lacks "$dir/err" "failing loopback with -v: shown once" "libAudio logged"
has "$dir/err" "failing loopback with -v" "^ERROR .*returns 0x8889000A"
expect 1 "failing loopback with --log" "$audiodiag" --machine "$busy" loopback --log "$dir/f.log"
has "$dir/err" "failing loopback with --log" "libAudio logged"
has "$dir/f.log" "failing loopback with --log" "^ERROR .*returns 0x8889000A"

# LIBAUDIO_LOG set, and no option: the library logs as it says, success or not.
LIBAUDIO_LOG=error "$audiodiag" loopback >/dev/null 2>"$dir/err" || fail "LIBAUDIO_LOG=error"
has "$dir/err" "LIBAUDIO_LOG=error" "^$retry"
LIBAUDIO_LOG="info:$dir/env.log" expect 0 "LIBAUDIO_LOG with a file" "$audiodiag" loopback
has "$dir/env.log" "LIBAUDIO_LOG with a file" "^INFO libAudio\."
LIBAUDIO_LOG=off expect 1 "LIBAUDIO_LOG=off" "$audiodiag" --machine "$busy" loopback
lacks "$dir/err" "LIBAUDIO_LOG=off" "ERROR|libAudio logged"
# The options win over the variable.
LIBAUDIO_LOG=off "$audiodiag" -v loopback >/dev/null 2>"$dir/err" || fail "-v over LIBAUDIO_LOG"
has "$dir/err" "-v over LIBAUDIO_LOG" "$retry"

# Progress: none when stderr is no terminal, whatever the length.
expect 0 "play of 2 s" "$audiodiag" play headphones --seconds 2
expect 0 "record of 2 s" "$audiodiag" record "Microphone Array" "$dir/r.wav" --seconds 2
expect 0 "loopback of 2 s" "$audiodiag" loopback --seconds 2
# On a terminal: the time done of the time asked, and the level of what is recorded. In
# real time: virtual time may race ahead of the thread that draws the line.
on_terminal() { # command...: runs it with stderr on a pseudo-terminal, into $dir/tty
    LIBAUDIO_CLOCK= python3 - "$dir/tty" "$@" <<'PY' || fail "$* on a terminal"
import os, pty, subprocess, sys
master, slave = pty.openpty()
child = subprocess.Popen(sys.argv[2:], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                         stderr=slave)
os.close(slave)
seen = b""
while True:
    try:
        chunk = os.read(master, 4096)
    except OSError:  # the terminal is gone with the command
        break
    if not chunk:
        break
    seen += chunk
open(sys.argv[1], "wb").write(seen)
sys.exit(child.wait())
PY
}
# progress_lines WHAT SECONDS LEVEL: the drawn lines of $dir/tty tell the time done out of
# SECONDS with a bar to match and move on; they carry a level when LEVEL is "level".
progress_lines() {
    python3 - "$dir/tty" "$@" <<'PY' || fail "$1 on a terminal: $(tr '\r' '\n' <"$dir/tty")"
import re, sys
text, what, seconds, level = open(sys.argv[1], newline="").read(), sys.argv[2], float(sys.argv[3]), sys.argv[4]
# The level shows once a tenth of a second has been recorded.
tail = r"(  level (?:-\d+\.\d dBFS|: silence))?" if level == "level" else ""
pattern = re.compile(re.escape(what) + r" \[(#*)(\.*)\] (\d+\.\d) / (\d+\.\d) s" + tail + " *")
drawn = [line for line in text.split("\r") if line.strip()]
assert drawn, "nothing drawn"
done = []
for line in drawn:
    m = pattern.fullmatch(line)
    assert m, f"not a progress line: {line!r}"
    assert len(m[1]) + len(m[2]) == 24 and float(m[4]) == seconds, line
    assert len(m[1]) == int(24 * float(m[3]) / seconds), f"the bar does not match: {line!r}"
    done.append(float(m[3]))
assert done == sorted(done) and len(set(done)) >= 3 and 0 < max(done) <= seconds, done
levels = [line for line in drawn if "level" in line]
assert (len(levels) >= 2) if level == "level" else not levels, drawn
assert "\n" not in text, "progress lines end without a newline"
PY
}
on_terminal "$audiodiag" play headphones --seconds 1.5
progress_lines playing 1.5 none
on_terminal "$audiodiag" record "Microphone Array" "$dir/r.wav" --seconds 1.5 --json
progress_lines recording 1.5 level
on_terminal "$audiodiag" loopback --seconds 1.5
progress_lines loopback 1.5 level
# The level is that of the signal: the loopback hears the tone well above the noise.
grep -Eq "level -[1-4][0-9]\.[0-9] dBFS" "$dir/tty" || fail "loopback level: $(tr '\r' '\n' <"$dir/tty")"
# Where a second or less runs, no line is worth showing.
on_terminal "$audiodiag" play headphones --seconds 1
[ ! -s "$dir/tty" ] || fail "a play of a second shows progress: $(cat "$dir/tty")"

echo "log and progress cli: ok"
