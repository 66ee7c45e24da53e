"""The plot-run scripts processor_test pins (tests/data/expected/*-plot.txt) rendered through
the plotting wrapper: time error, a deviation with its band and MTIE to PNG and PDF from one
point to a million; long curves drawn reduced, yet each pixel column of the figure reaches every
series' extremes within a pixel (a spike one sample wide still shows).

usage: python3 plot_render_test.py SOURCE_DIR
"""

import os
import subprocess
import sys
import tempfile
import unittest

import numpy as np

SOURCE = sys.argv[1]

# Appended to a script: exits 3 when the curve was not reduced, 4 when a pixel column lost an
# extreme (of every row against the rows drawn, in the columns of the figure at 150 dpi).
PIXEL_EXTREMES_CHECK = """
def pixelExtremes(x, y):
    f1.set_dpi(150)
    pixel = ax1.transData.transform(np.column_stack([x, np.ones(len(x))]))[:, 0]
    y = y.astype(float)
    valid = np.isfinite(y) & ((y > 0) if LOG_AXES else True)
    pixel = pixel[valid].astype(np.int64) + 1
    low = np.full(pixel.max() + 2, np.inf)
    high = np.full(pixel.max() + 2, -np.inf)
    np.minimum.at(low, pixel, y[valid])
    np.maximum.at(high, pixel, y[valid])
    return low, high
if len(XVALUES[shown]) * 5 > len(XVALUES):
    sys.exit(3)
for y in (SERIES,):
    low, high = pixelExtremes(XVALUES, y)
    drawnLow, drawnHigh = pixelExtremes(XVALUES[shown], y[shown])
    near = lambda values, pick: pick(pick(values[:-2], values[1:-1]), values[2:])
    if np.any(near(drawnLow, np.minimum) > low[1:-1]) or \\
            np.any(near(drawnHigh, np.maximum) < high[1:-1]):
        sys.exit(4)
"""


def script(name, directory, plot):
    """The plot-run script of name reading its CSV from directory and saving plot."""
    with open(os.path.join(SOURCE, 'tests/data/expected', name + '-plot.txt')) as stream:
        text = stream.read()
    return text.replace("'/out dir/n.png'", repr(plot)).replace('/out dir', directory)


def run(directory, text):
    path = os.path.join(directory, 'Run.py')
    with open(path, 'w') as stream:
        stream.write(text)
    return subprocess.run([sys.executable, os.path.join(SOURCE, 'python/veridaneprobe-plot'),
                           path], capture_output=True, text=True,
                          env=dict(os.environ, MPLBACKEND='Agg')).returncode


def write(directory, name, header, *columns):
    np.savetxt(os.path.join(directory, name), np.column_stack(columns), fmt='%.9g', delimiter=',',
               header=header, comments='')


class PlotRender(unittest.TestCase):

    def test_one_to_a_million_points(self):
        for count in (1, 2, 3, 1000000):
            with self.subTest(count=count), tempfile.TemporaryDirectory() as directory:
                i = np.arange(1, count + 1)
                value = 1e-9 / i
                write(directory, 'n_time_error.csv', 'time,time_error', i * 10**9, i * 7919 % 61)
                write(directory, 'n_adev.csv', 'window,tau,adev,terms,alpha,edf,adev_min,adev_max',
                      i, i, value, i * 0 + 10, i * 0, i * 0 + 5, value * 0.8, value * 1.3)
                write(directory, 'n_mtie.csv', 'window,tau,mtie,terms', i, i, 10 + i, i * 0 + 10)
                # One interpreter for the six plots.
                plots = [(name, os.path.join(directory, name + extension)) for name in
                         ('time-error', 'adev', 'mtie') for extension in ('.png', '.pdf')]
                self.assertEqual(run(directory, ''.join(
                    script(name, directory, path) for name, path in plots)), 0)
                for name, path in plots:
                    with open(path, 'rb') as stream:
                        start = stream.read(4)
                    self.assertEqual(start, b'\x89PNG' if path.endswith('.png') else b'%PDF', name)

    def test_reduced_curves_keep_each_pixel_columns_extremes(self):
        with tempfile.TemporaryDirectory() as directory:
            i = np.arange(1, 200001)
            # Noise with rare one-sample spikes up and down.
            spike = np.where(i % 9973 == 0, 5000, np.where(i % 7919 == 0, -4000, 0))
            write(directory, 'n_time_error.csv', 'time,time_error', i * 10**9,
                  i * 7919 % 61 - 30 + spike)
            i = i[:100000]
            wobble = 1 + (i * 7907 % 53) / 100.0 + np.where(i % 4999 == 0, 3, 0)
            # A zero, which a log axis cannot show, among the values.
            value = np.where(i == 60000, 0, 1e-9 / np.sqrt(i) * wobble)
            write(directory, 'n_adev.csv', 'window,tau,adev,terms,alpha,edf,adev_min,adev_max', i,
                  0.125 * i, value, i * 0 + 10, i * 0, i * 0 + 5,
                  value * np.where(i % 3001 == 0, 0.1, 0.8), value * 1.3)
            for name, x, series, log in (('time-error', 'time', 'timeError', 'False'),
                                         ('adev', 'tau', 'adev, adevMin, adevMax', 'True')):
                check = PIXEL_EXTREMES_CHECK.replace('LOG_AXES', log).replace('SERIES', series)
                text = script(name, directory, os.path.join(directory, name + '.png'))
                self.assertEqual(run(directory, text + check.replace('XVALUES', x)), 0, name)


if __name__ == '__main__':
    unittest.main(argv=sys.argv[:1], verbosity=2)
