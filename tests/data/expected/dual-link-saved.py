#!/usr/bin/python

import numpy as np
import matplotlib.pyplot as plt
import matplotlib.mlab as mlab
import os
import sys
timeErrorRecords = mlab.csv2rec(os.path.split(sys.argv[0])[0]+'/n_time_error.csv')

time = timeErrorRecords.time
timeError = timeErrorRecords.time_error

f1, ax1 = plt.subplots()
ax1.plot(time, timeError, 'r-')
ax1.set_ylabel('Time Error (ns)')
ax1.set_xlabel('Time (ns)')
ax1.set_title('Time Errors - link A')
ax1.plot([time[0], time[-1]], [80, 80], '-', color='#fac205')
ax1.plot([time[0], time[-1]], [-80, -80], '-', color='#fac205')
ax1.grid(True)

plt.subplots_adjust(left=0.05, right=0.97, bottom=0.05, top=0.97)

plt.show()
