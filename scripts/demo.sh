#!/usr/bin/env bash
# The SDK's main job, end to end on this machine: an agent stand-in on
# loopback, a C service that raises, clears and checks alarms through the
# library, a service on the legacy interface with its XML definitions (checked
# first with alarmdef-check), and alarm-send raising one from the shell; then
# the same two services through alarm-bridge into a local Alertmanager.
# Installs what is missing, builds, runs them, prints what the agent
# received and, last, every program's delivery counters, and stops
# everything it started.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
build=build/demo
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DALARMSDK_BUILD_TESTS=OFF -DALARMSDK_BUILD_BENCH=OFF \
  > /dev/null
cmake --build "$build" -j"$(nproc)" --target nodeward-sim alarm-bridge demo-service legacy-service alarm-send alarmdef-check > /dev/null

work=$(mktemp -d /tmp/alarmsdk-demo.XXXXXX)
sim_pid=""
bridge_pid=""
am_pid=""
cleanup() {
  for pid in $sim_pid $bridge_pid $am_pid; do
    if kill -0 "$pid" 2>/dev/null; then
      kill -INT "$pid" 2>/dev/null || true
      wait "$pid" 2>/dev/null || true
    fi
  done
  rm -rf "$work"
}
trap cleanup EXIT

# A loopback port nobody answers on, for the service's alarm-check resource.
free_port() {
  local port
  for _ in $(seq 1 50); do
    port=$((20000 + RANDOM % 20000))
    if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
      echo "$port"
      return 0
    fi
  done
  return 1
}
service_port=$(free_port)

# The agent calls the service back once its first alarm has arrived.
"$build/tools/nodeward-sim/nodeward-sim" --listen 127.0.0.1:0 --ready-file "$work/agent.endpoint" \
  --jsonl "$work/received.jsonl" \
  --callback 'orders=[{"alarmId":"300012","parameters":{"disk":"sda"}}]' > "$work/agent.out" 2>&1 &
sim_pid=$!
for _ in $(seq 1 100); do
  [ -s "$work/agent.endpoint" ] && break
  sleep 0.05
done
[ -s "$work/agent.endpoint" ] || { echo "the agent did not start"; cat "$work/agent.out"; exit 1; }
agent=$(cat "$work/agent.endpoint")

echo "== agent stand-in listening on $agent; service serving alarm checks on 127.0.0.1:$service_port"
echo "== the service says:"
APPID=demo-app APPNAME=orders-app NODEWARD_ENDPOINT="$agent" \
  TRANSPORT_SDK_IP=127.0.0.1 TRANSPORT_SDK_PORT="$service_port" RUNLOG_FILE="$work/runlog.txt" \
  "$build/examples/demo-service" | tee "$work/services.out"

echo "== alarmdef-check on the legacy definitions (exit 0: clean):"
"$build/tools/alarmdef-check/alarmdef-check" examples/legacy/alarms.xml && echo "examples/legacy/alarms.xml: clean"
echo "== the legacy service says:"
APPID=demo-app APPNAME=storage-app NODEWARD_ENDPOINT="$agent" HOSTING_SERVER_IP=10.0.0.5 NODE_ID=node-1 \
  LEGACY_DEFINITIONS=examples/legacy/alarms.xml RUNLOG_FILE="$work/runlog.txt" "$build/examples/legacy-service" |
  tee -a "$work/services.out"

echo "== alarm-send raise 300012 disk=sdb usage=97 (a health check in a shell script):"
if APPID=demo-app APPNAME=cron-app NODEWARD_ENDPOINT="$agent" \
  "$build/tools/alarm-send/alarm-send" --service disk-check --stats raise 300012 disk=sdb usage=97 > "$work/send.out"; then
  echo "alarm-send: exit 0, delivered"
else
  echo "alarm-send: exit $?"
fi

kill -INT "$sim_pid"
wait "$sim_pid" || true
sim_pid=""
echo "== the agent received:"
cat "$work/agent.out"
echo "== $(wc -l < "$work/received.jsonl") documents recorded as JSON Lines; the first one:"
head -n 1 "$work/received.jsonl"
echo "== delivery counters (alarmsdk_get_stats and friends):"
grep counters "$work/services.out"
echo "alarm-send: counters: $(cat "$work/send.out")"

echo
echo "== alarm-bridge: the same services, with the bridge where the agent listens, in front of a local Alertmanager"
if [ ! -x /usr/bin/prometheus-alertmanager ]; then
  echo "prometheus-alertmanager is not installed: section skipped"
  exit 0
fi
am_port=$(free_port)
bridge_port=$(free_port)
printf 'route: {receiver: default}\nreceivers: [{name: default}]\n' > "$work/am.yml"
/usr/bin/prometheus-alertmanager --config.file="$work/am.yml" --storage.path="$work/am" \
  --web.listen-address="127.0.0.1:$am_port" --cluster.listen-address= --web.ui-path="$PWD/tools/alarm-bridge/ui" \
  > "$work/am.log" 2>&1 &
am_pid=$!
am="http://127.0.0.1:$am_port"
# Checks every 2 s, so the service sees one while it runs.
"$build/tools/alarm-bridge/alarm-bridge" --listen "127.0.0.1:$bridge_port" --state "$work/bridge.db" \
  --alertmanager "$am" --resend 10 --check-interval 2 > "$work/bridge.log" 2>&1 &
bridge_pid=$!
for _ in $(seq 1 200); do
  curl -sf "$am/-/ready" > /dev/null && curl -sf "http://127.0.0.1:$bridge_port/metrics" > /dev/null && break
  sleep 0.05
done
echo "== Alertmanager on $am, alarm-bridge on 127.0.0.1:$bridge_port; the services say:"
APPID=demo-app APPNAME=orders-app NODEWARD_ENDPOINT="127.0.0.1:$bridge_port" DEMO_WAIT_SECONDS=5 \
  TRANSPORT_SDK_IP=127.0.0.1 TRANSPORT_SDK_PORT="$(free_port)" RUNLOG_FILE="$work/runlog.txt" \
  "$build/examples/demo-service"
APPID=demo-app APPNAME=storage-app NODEWARD_ENDPOINT="127.0.0.1:$bridge_port" HOSTING_SERVER_IP=10.0.0.5 \
  NODE_ID=node-1 LEGACY_DEFINITIONS=examples/legacy/alarms.xml RUNLOG_FILE="$work/runlog.txt" \
  "$build/examples/legacy-service"
sleep 1
echo "== Alertmanager shows (amtool alert query -o extended):"
amtool alert query --alertmanager.url="$am" -o extended
echo "== the alarm page: $am/ (tools/alarm-bridge/ui, served by this Alertmanager while the demo runs)"
if [ -x /usr/bin/chromium ]; then
  rows=$(timeout -k 5 60 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$work/chromium" \
    --virtual-time-budget=3000 --dump-dom "$am/" 2>/dev/null | grep -o '<tr class="alert">' | wc -l) || rows="?"
  echo "   headless chromium finds $rows alarm rows on it"
fi
echo "== alarm-bridge --status:"
"$build/tools/alarm-bridge/alarm-bridge" --status --state "$work/bridge.db"
echo "== alarm-bridge metrics:"
curl -s "http://127.0.0.1:$bridge_port/metrics" | grep -v '^#'
