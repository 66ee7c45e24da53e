"""The classic matplotlib API that veridaneprobe's plot scripts use, on current matplotlib.

The scripts call matplotlib.mlab.csv2rec and pyplot.hold, which current matplotlib no longer
has. install() supplies them where they are missing, so the scripts run unchanged, both inside
veridaneprobe and by hand through veridaneprobe-plot.
"""

import numpy as np


def _column_names(header):
    return [name.strip().lower().replace(' ', '_') for name in header.split(',')]


def _column_type(text):
    try:
        value = int(text)
    except ValueError:
        return np.float64
    if -2**63 <= value < 2**63:
        return np.int64
    return np.uint64 if 0 <= value < 2**64 else np.float64


def csv2rec(fname, comments='#', skiprows=0, checkrows=0, delimiter=',', **ignored):
    """Reads a CSV with a header row into a record array whose field names are the header's
    names, lower-cased, with blanks turned into underscores. Column types come from the first
    data row: integers stay integers, anything else is a float."""
    with open(fname, 'r') as stream:
        for _ in range(skiprows):
            stream.readline()
        header = stream.readline().rstrip('\r\n')
        first_row = stream.readline().strip()
    names = _column_names(header)
    if first_row:
        types = [_column_type(field.strip()) for field in first_row.split(delimiter)]
    else:
        types = [np.float64] * len(names)
    dtype = np.dtype(list(zip(names, types)))
    # numpy's C reader: a million rows in well under a second.
    rows = np.loadtxt(fname, dtype=dtype, delimiter=delimiter, skiprows=skiprows + 1,
                      comments=comments, ndmin=1)
    return rows.view(np.recarray)


def hold(*args, **kwargs):
    """Figures always hold their contents on current matplotlib."""


def install(backend=None):
    import matplotlib
    if backend:
        matplotlib.use(backend)
    import matplotlib.mlab
    import matplotlib.pyplot
    if not hasattr(matplotlib.mlab, 'csv2rec'):
        matplotlib.mlab.csv2rec = csv2rec
    if not hasattr(matplotlib.pyplot, 'hold'):
        matplotlib.pyplot.hold = hold
    # Hours-long captures plot a million points: draw long paths in chunks so Agg never runs out
    # of room, and let path simplification drop points that land on the same pixel.
    matplotlib.rcParams['agg.path.chunksize'] = 20000
    matplotlib.rcParams['path.simplify'] = True
