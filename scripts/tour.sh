#!/usr/bin/env bash
# The guided tour of libtelvix: starts the bundled PBX simulator on a free
# port and drives telvix-cli through a short session that a newcomer can
# follow on screen. Needs a build (scripts/build.sh); ends by itself and
# leaves no process behind.
#   bash scripts/tour.sh [BUILD_DIR]      (TOUR_PACE_MS=0 runs it without pauses)
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR=${1:-${TELVIX_BUILD_DIR:-build}}
SIM="$BUILD_DIR/tools/telvix-pbx-sim"
CLI="$BUILD_DIR/tools/telvix-cli"
PACE=${TOUR_PACE_MS:-1500}
for tool in "$SIM" "$CLI"; do
  [ -x "$tool" ] || { echo "tour: $tool is missing; build first (bash scripts/build.sh)" >&2; exit 1; }
done

. scripts/simulator.sh

# Port 0: the system picks a free port and the simulator prints it.
start_simulator "$SIM" "$work/sim.log" --answer-delay 1500 --call-duration 3000 --probe-interval 0 \
  --scenario tools/pbxsim/scenarios/tour.json || { echo "tour: no simulator" >&2; exit 1; }

cat <<INTRO
================================================================================
 libtelvix tour: telvix-pbx-sim is listening on 127.0.0.1:$port.
 telvix-cli logs in as Anna Rossi (extension 1000, password 1000) and runs the
 commands below. Lines starting with ### are the tour's; the others are the
 library's signals and the results of its methods, one per line.
 (Anna logs in as a mobile client: one line per call event instead of one per
 SIP account. Long lists are cut short; --json prints everything.)
================================================================================
INTRO

mkdir "$work/voicemail"

# The commands, as a person would type them. They run as soon as they are
# read; waitFor holds the next command until the library raises that signal.
timeout 180 "$CLI" --user 1000 --password 1000 --server "127.0.0.1:$port" --mode srnt_mobile \
  --data-dir "$work/cli" 2>"$work/cli.err" <<COMMANDS | tee "$work/cli.out"
waitFor loggedToServer
echo "### 1. Logged in. Who works here? The extension list arrives as contacts:"
getExtenList
waitFor sigPhonebookChanged
wait $PACE
echo "### Who is on the phone (blfStatus: 0 idle, 1 in use, 8 ringing)?"
getExtenStatus
waitFor sigExtenStatusMapChanged
wait $PACE
echo "### 2. The company phone book:"
getPhoneBook
waitFor sigPhonebookChanged
wait $PACE
echo "### Anna's call history:"
getCDR false
waitFor sigCdrChanged
wait $PACE
echo "### 3. Anna calls her colleague Bruno Keller (1001). It rings..."
newCall 1001 0
waitFor sigStartingCall
echo "### ...Bruno answers..."
waitFor sigAnsweredCall
echo "### ...and hangs up a little later. The call enters the history:"
waitFor sigFinishedCall
waitFor sigCdrChanged
wait $PACE
echo "### 4. Anna looks at her voicemail, and a customer calls from outside:"
getVoicemail 7
waitFor sigVoicemailMsgList
waitFor sigIncomingCall
echo "### Anna's phone answers; the customer talks, then hangs up:"
waitFor sigAnsweredCall
waitFor sigFinishedCall
wait $PACE
echo "### 5. Anna fetches her newest voicemail message (id 1000-1; the second word names the file)."
echo "### The simulator sends GSM audio on a connection of its own; the library saves a PCM wave:"
downloadVoicemailMessage 1000-1 newest-message $work/voicemail
waitFor sigVoicemailDownloadCompleted
wait $PACE
echo "### 6. Anna logs out."
logout
waitFor disconnectedFromServer
COMMANDS
cli_status=${PIPESTATUS[0]}

echo "================================================================================"
echo " What the simulator did:"
sed 's/^/   /' "$work/sim.log"
echo "================================================================================"

missing=()
for expected in "loggedToServer details=" "sigExtenStatusMapChanged" "sigCdrChanged" \
  "sigStartingCall" "sigAnsweredCall" "sigFinishedCall" "sigIncomingCall uid=" \
  "sigVoicemailDownloadCompleted messageId=1000-1" "disconnectedFromServer reason=UserRequest"; do
  grep -qF "$expected" "$work/cli.out" || missing+=("$expected")
done
# A wave header and some sound.
wave="$work/voicemail/newest-message.wav"
[ -f "$wave" ] && [ "$(stat -c %s "$wave")" -gt 44 ] || missing+=("$wave")
if [ "$cli_status" -ne 0 ] || [ ${#missing[@]} -gt 0 ] || grep -q '^error: ' "$work/cli.out"; then
  echo "tour: FAILED (telvix-cli exit code $cli_status; missing: ${missing[*]:-none})" >&2
  grep '^error: ' "$work/cli.out" >&2 || true
  cat "$work/cli.err" >&2
  exit 1
fi
echo " Tour complete. Next: $CLI --help, and $SIM --help."
