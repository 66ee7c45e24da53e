#!/usr/bin/python

import matplotlib.pyplot as plt
import matplotlib.mlab as mlab
import os
import sys

timeErrorRecords = mlab.csv2rec('/d/x.csv')

time = timeErrorRecords.time
timeError = timeErrorRecords.time_error * 1000000.0

f1, ax1 = plt.subplots()

ax1.plot(time, timeError, 'g-')
ax1.set_ylabel('Time Error (us)')
ax1.grid(True)

plt.title('Audio Time Error Analysis run 7')
plt.xlabel('Time since start of audio (s)')

plt.subplots_adjust(left=0.05, right=0.97, bottom=0.05, top=0.97)
plt.hold(True)

f1.set_size_inches(32, 16.98753)

f1.savefig('/p/x.png')

