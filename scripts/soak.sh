#!/usr/bin/env bash
# A soak: a service (tests/soak/soak_driver.cpp) raises and clears alarms for
# MINUTES through both generations and two co-process handles from several
# threads, takes alarm checks and forks a child now and then, while the agent
# stand-in fails a share of the requests and is stopped and started again every
# 45 s. Then scripts/soak_check.py reads the stand-in's record on its own.
#   scripts/soak.sh MINUTES [BUILD_DIR]     (default build/normal, already built: the normal suite's)
# Exit status 0 when every accepted alarm arrived in order and memory and
# descriptors stayed flat; the files stay in the directory it prints.
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:?usage: scripts/soak.sh MINUTES [BUILD_DIR]}
build=${2:-build/normal}
sim=$build/tools/nodeward-sim/nodeward-sim
driver=$build/tests/soak_driver
for program in "$sim" "$driver"; do
  [ -x "$program" ] || { echo "soak: $program is missing: build $build first" >&2; exit 2; }
done
# Cross builds run through the emulator the tests use.
run=(${ALARMSDK_TEST_EMULATOR:+${ALARMSDK_TEST_EMULATOR//,/ }})
work=$(mktemp -d /tmp/alarmsdk-soak-XXXXXX)
echo "soak: ${minutes} min, files in $work"
free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
agent_port=$(free_port)
check_port=$(free_port)

sim_pid=
modes=(retcode empty garbage close)
restarts=0
start_sim() {
  "${run[@]}" "$sim" --listen "127.0.0.1:$agent_port" --fail-ratio 0.1 --seed "$RANDOM" \
    --fail-mode "${modes[restarts % 4]}" --jsonl "$work/agent.jsonl" --quiet >> "$work/sim.log" 2>&1 &
  sim_pid=$!
  restarts=$((restarts + 1))
}
stop_sim() { kill -TERM "$sim_pid" 2> /dev/null && wait "$sim_pid" 2> /dev/null || true; }
trap 'stop_sim; [ -z "${driver_pid:-}" ] || kill "$driver_pid" 2> /dev/null || true' EXIT

start_sim
APPID=soak-app APPNAME=soak-app-name NODEWARD_ENDPOINT="127.0.0.1:$agent_port" TRANSPORT_SDK_IP=127.0.0.1 \
  TRANSPORT_SDK_PORT="$check_port" "${run[@]}" "$driver" $((minutes * 60)) "$work/ledger" \
  "$PWD/examples/legacy/alarms.xml" 2> "$work/service.log" &
driver_pid=$!

answered=0
tick=0
while kill -0 "$driver_pid" 2> /dev/null; do
  sleep 1
  tick=$((tick + 1))
  if [ $((tick % 45)) -eq 0 ]; then  # the agent goes away for 3 s
    stop_sim
    sleep 3
    start_sim
  elif [ $((tick % 7)) -eq 0 ]; then  # an alarm check through the stand-in
    status=$(curl -s -o /dev/null -w '%{http_code}' -X POST --data '[{"alarmId":"300012"}]' \
      "http://127.0.0.1:$agent_port/sim/callback?service=soak-svc" || true)
    [ "$status" != 200 ] || answered=$((answered + 1))
  fi
done
driver_status=0
wait "$driver_pid" || driver_status=$?
driver_pid=
stop_sim
echo "soak: the service exited with $driver_status; the stand-in was started $restarts times"
# The last line gives the counts as the test command reads them: the soak is one check.
if python3 scripts/soak_check.py "$work/ledger" "$work/agent.jsonl" "$answered" && [ "$driver_status" -eq 0 ]; then
  echo "1 passed, 0 failed"
else
  echo "0 passed, 1 failed"
  exit 1
fi
