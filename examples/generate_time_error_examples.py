#!/usr/bin/python3
"""Writes the sample time error recordings in examples/, one per input layout.

usage: python3 examples/generate_time_error_examples.py [output-directory]

Every file models a PTP slave clock disciplined by a servo, sampled 8 times a second:
- white phase noise of 4 ns RMS (timestamping jitter),
- a slow wander: random-walk frequency noise that the servo pulls back, leaving a bounded,
  correlated phase excursion of some tens of ns,
- a few phase steps (path changes) that the servo removes with a 20 s time constant.
The seed is fixed, so the files are the same on every run.

Files:
  servo-clock-8hz.csv   time-error layout, 2 hours: "index,time,time_error" with seconds
  dual-check.csv        dual-check layout, 10 minutes: index, sequence, timestamp ns,
                        correction ns, time error ns
  marten.csv            marten layout, 10 minutes: timestamp ns, sequence, time error ns,
                        path delay ns, flags
  osprey.csv            osprey layout, 10 minutes: timestamp ns and three slaves'
                        (sequence, time error ns) pairs, then four status fields
  dual-link.csv         dual-link layout, 5 minutes, converging from a 20 us offset into the
                        +-80 ns band: timestamp ns, sequence, time error ns, path delay ns, flags
  ptp4l-16hz.log        what `ptp4l -m` prints for an hour at 16 Hz (veridaneprobe-check): port
                        state lines, the first offsets unlocked (s0), one clock step (s1), then
                        locked (s2) while the servo pulls in the rest
"""

import math
import os
import random
import sys

RATE = 8  # samples per second


def servo_clock(rng, seconds, initial_offset_ns=0.0, steps=3, time_constant=20):
    """Time errors in ns of a servo-disciplined clock, one per sample."""
    count = seconds * RATE
    step_times = sorted(rng.randrange(count // 10, count) for _ in range(steps))
    step_sizes = [rng.choice((-1, 1)) * rng.uniform(20, 45) for _ in step_times]
    decay = math.exp(-1.0 / (time_constant * RATE))  # the servo's time constant, seconds
    frequency = 0.0   # ns per sample, random walk pulled back by the servo
    wander = 0.0
    transient = initial_offset_ns
    errors = []
    for index in range(count):
        while step_times and step_times[0] == index:
            step_times.pop(0)
            transient += step_sizes.pop(0)
        frequency += rng.gauss(0.0, 0.02) - 0.002 * wander
        frequency *= 0.995
        wander += frequency
        transient *= decay
        errors.append(wander + transient + rng.gauss(0.0, 4.0))
    return errors


def write(path, header, rows):
    with open(path, 'w') as stream:
        if header:
            stream.write(header + '\n')
        for row in rows:
            stream.write(row + '\n')


def main():
    directory = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    rng = random.Random(20140131)
    start_ns = 1_700_000_000_000_000_000  # a realistic PTP epoch timestamp

    errors = servo_clock(rng, 2 * 3600)
    write(os.path.join(directory, 'servo-clock-8hz.csv'), 'index,time,time_error',
          ('%d,%.3f,%.13f' % (i, 1000 + i / RATE, e * 1e-9) for i, e in enumerate(errors)))

    def timestamp(i):
        return start_ns + i * 1_000_000_000 // RATE

    errors = servo_clock(rng, 600)
    write(os.path.join(directory, 'dual-check.csv'), 'index,sequence,timestamp,correction,error',
          ('%d,%d,%d,%d,%d' % (i, 4000 + i, timestamp(i), 512, round(e))
           for i, e in enumerate(errors)))

    errors = servo_clock(rng, 600)
    write(os.path.join(directory, 'marten.csv'), 'timestamp,sequence,error,path_delay,flags',
          ('%d,%d,%d,%d,%d' % (timestamp(i), 7000 + i, round(e), 1830 + rng.randrange(5), 0)
           for i, e in enumerate(errors)))

    slaves = [servo_clock(rng, 600) for _ in range(3)]
    write(os.path.join(directory, 'osprey.csv'),
          'timestamp,seq0,error0,seq1,error1,seq2,error2,status0,status1,status2,flags',
          ('%d,%d,%d,%d,%d,%d,%d,0,0,0,0' % (timestamp(i), i, round(slaves[0][i]), i,
                                             round(slaves[1][i]), i, round(slaves[2][i]))
           for i in range(len(slaves[0]))))

    errors = servo_clock(rng, 300, initial_offset_ns=20000.0, steps=0, time_constant=8)
    write(os.path.join(directory, 'dual-link.csv'), 'timestamp,sequence,error,path_delay,flags',
          ('%d,%d,%d,%d,%d' % (timestamp(i), i, round(e), 1830, 0)
           for i, e in enumerate(errors)))
    write(os.path.join(directory, 'ptp4l-16hz.log'), None, ptp4l_log(random.Random(8273)))


def ptp4l_log(rng, seconds=3600, rate=16):
    """The lines of `ptp4l -m` for a slave that steps its clock once and then locks."""
    lines = ['ptp4l[3560.140]: selected /dev/ptp0 as PTP clock',
             'ptp4l[3560.141]: port 1: INITIALIZING to LISTENING on INIT_COMPLETE',
             'ptp4l[3560.141]: port 0: INITIALIZING to LISTENING on INIT_COMPLETE',
             'ptp4l[3562.507]: port 1: new foreign master 001122.fffe.334455-1',
             'ptp4l[3566.508]: selected best master clock 001122.fffe.334455',
             'ptp4l[3566.508]: port 1: LISTENING to UNCALIBRATED on RS_SLAVE']
    start = 3567.132
    # Before the step the clock is 1.2 ms off; after it the servo pulls in a few hundred ns
    # with a 12 s time constant over a wander of tens of ns and 3 ns of timestamp noise.
    decay = math.exp(-1.0 / (12 * rate))
    transient = rng.uniform(-400, -200)
    frequency = wander = 0.0
    for index in range(seconds * rate):
        time = start + index / rate + rng.uniform(-0.0008, 0.0008)
        frequency += rng.gauss(0.0, 0.01) - 0.001 * wander
        frequency *= 0.997
        wander += frequency
        if index < 2:
            offset, state, freq = -1234567 + 11 * index, index, 0 if index == 0 else -4210
        else:
            transient *= decay
            offset = round(transient + wander + rng.gauss(0.0, 3.0))
            state, freq = 2, -4210 + 0.2 * transient + rng.gauss(0.0, 2.0)
        lines.append('ptp4l[%.3f]: master offset %10d s%d freq %+7.0f path delay %9d'
                     % (time, offset, state, freq, 512 + rng.randrange(4)))
        if index == 2:
            lines.append('ptp4l[%.3f]: port 1: UNCALIBRATED to SLAVE on MASTER_CLOCK_SELECTED'
                         % time)
    return lines


if __name__ == '__main__':
    main()
