#!/usr/bin/env python3
"""A made-up day of 50 disks as a poll file, two of which go wrong: made_up_day.py >day.csv

Latencies in microseconds, every 10 seconds, busier by day than by night. sd12 becomes slow at 14:00 and stays so;
sd31 is slow for half an hour from 05:00 on. Restarts of sd20's counter of bytes are resets.
"""

import math
import random
import sys

random.seed(7)
START = 1795305600  # 2026-11-22 00:00 UTC
DISKS = [(f"sd{i}", random.uniform(150, 900), random.uniform(0.2, 0.45)) for i in range(50)]
written = [0] * len(DISKS)

out = sys.stdout.write
out("time,device,latency_us,written_bytes\n")
for t in range(START, START + 86401, 10):
    hour = (t - START) / 3600
    load = 1 + 0.7 * math.exp(-(((hour - 14) / 4) ** 2))
    for i, (name, usual, spread) in enumerate(DISKS):
        slow = 2.6 if name == "sd12" and hour >= 14 else 3.5 if name == "sd31" and 5 <= hour < 5.5 else 1
        latency = usual * load * slow * random.lognormvariate(0, spread)
        if random.random() < 0.0004:
            latency *= 8
        if name == "sd20" and random.random() < 0.0003:
            written[i] = 0
        written[i] += int(4e6 * load * random.lognormvariate(0, 0.8))
        out(f"{t},{name},{int(latency)},{written[i]}\n")
