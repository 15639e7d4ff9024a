#!/usr/bin/env python3
"""Reads a soak's records on its own and says whether it held: every alarm the
service's library accepted reached the agent stand-in, in order per stream,
and resident memory and open descriptors stayed flat after the warm-up.

  soak_check.py LEDGER AGENT_JSONL CHECKS_ANSWERED

LEDGER is soak_driver's ("stream NAME COUNT", "refused NAME:N", "sample SECONDS
RSS_KB FDS", "checks N", ...); AGENT_JSONL is every document the stand-in
decoded, one per line, the ones it failed on purpose included (they are sent
again). Only the stand-in's record is trusted for what arrived."""
import json
import re
import sys

RSS_GROWTH_KB = 4096  # allowed after the warm-up: allocator noise, not a leak
FD_GROWTH = 4         # connections being opened while a sample is taken
LEGACY_TAG = re.compile(r"^EN:Disk=([^#]+)##")


def tags(document):
    """The "<stream>:<n>" tags of one decoded push document, in document order."""
    alarms = (document.get("payload") or {}).get("alarmList") or []
    for alarm in alarms:
        if "service" in document:
            match = LEGACY_TAG.match(alarm.get("location", ""))
            if match:
                yield match.group(1)
        else:
            for param in alarm.get("parameters") or []:
                if param.get("paramName") == "seq":
                    yield param.get("paramValue", "")


def main(ledger_path, jsonl_path, checks_answered):
    counts, refused, samples, facts = {}, set(), [], {}
    with open(ledger_path, encoding="utf-8") as ledger:
        for line in ledger:
            words = line.split()
            if words[0] == "stream":
                counts[words[1]] = int(words[2])
            elif words[0] == "refused":
                refused.add(words[1])
            elif words[0] == "sample":
                samples.append((int(words[1]), int(words[2]), int(words[3])))
            else:
                facts.setdefault(words[0], []).append(" ".join(words[1:]))

    seen = {}        # stream -> numbers in order of first arrival
    arrivals = 0
    documents = 0
    with open(jsonl_path, encoding="utf-8") as records:
        for line in records:
            documents += 1
            for tag in tags(json.loads(line)):
                arrivals += 1
                stream, _, number = tag.rpartition(":")
                firsts = seen.setdefault(stream, {})
                firsts.setdefault(int(number), len(firsts))

    problems = []
    accepted = 0
    for stream, count in sorted(counts.items()):
        expected = [n for n in range(count) if f"{stream}:{n}" not in refused]
        accepted += len(expected)
        firsts = seen.get(stream, {})
        missing = [n for n in expected if n not in firsts]
        if missing:
            problems.append(f"{stream}: {len(missing)} accepted alarms never arrived (first {missing[:5]})")
        order = sorted(firsts, key=firsts.get)
        if order != sorted(order):
            problems.append(f"{stream}: arrived out of order")
    strangers = sorted(set(seen) - set(counts))
    if strangers:
        problems.append(f"alarms of streams the service never had: {strangers[:5]}")

    warm = [s for s in samples if s[0] <= samples[-1][0] / 4] if samples else []
    after = samples[len(warm):]
    if warm and after:
        rss_warm, rss_after = max(s[1] for s in warm), max(s[1] for s in after)
        fds_warm, fds_after = max(s[2] for s in warm), max(s[2] for s in after)
        if rss_after - rss_warm > RSS_GROWTH_KB:
            problems.append(f"resident memory grew after the warm-up: {rss_warm} -> {rss_after} KiB")
        if fds_after - fds_warm > FD_GROWTH:
            problems.append(f"open descriptors grew after the warm-up: {fds_warm} -> {fds_after}")
        memory = f"resident {rss_warm} -> {rss_after} KiB, descriptors {fds_warm} -> {fds_after}"
    else:
        problems.append("too few samples of memory and descriptors")
        memory = "no samples"

    checks = int(facts.get("checks", ["0"])[-1])
    if checks != checks_answered:
        problems.append(f"{checks_answered} alarm checks answered 200, {checks} reached the callback")
    print(f"soak: {len(counts)} streams, {accepted} alarms accepted, {len(refused)} refused, {arrivals} arrivals "
          f"in {documents} documents (resends included), {len(facts.get('child', []))} children, "
          f"{checks} alarm checks; {memory}")
    for fact in facts.get("done", []):
        print(f"soak: service at the end: {fact}")
    for problem in problems:
        print(f"soak: FAILED: {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2], int(sys.argv[3])))
