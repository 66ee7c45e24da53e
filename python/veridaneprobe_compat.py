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


def _replace_atomically(save, path):
    """Calls save with a temporary path beside path, which keeps path's extension (it chooses
    the file type), then renames the temporary file over path: a failed save (a full disk)
    leaves the earlier file as it was and removes the temporary one."""
    import os
    import tempfile
    directory, name = os.path.split(path)
    extension = os.path.splitext(name)[1]
    descriptor, temporary = tempfile.mkstemp(prefix='.' + name + '.tmp-', suffix=extension,
                                             dir=directory or '.')
    os.close(descriptor)
    try:
        save(temporary)
        # mkstemp makes the file private; give it the mode any new file gets.
        umask = os.umask(0)
        os.umask(umask)
        os.chmod(temporary, 0o666 & ~umask)
        os.replace(temporary, path)
    except BaseException:
        try:
            os.remove(temporary)
        except OSError:
            pass
        raise


def _atomic_savefig(savefig):
    """Wraps Figure.savefig so that a plot saved to a path replaces the file only when
    complete. File objects, and paths without an extension (matplotlib adds one to those), are
    passed through unchanged."""
    import functools
    import os

    @functools.wraps(savefig)
    def atomic_savefig(figure, fname, *args, **kwargs):
        if not isinstance(fname, (str, os.PathLike)) or not os.path.splitext(fname)[1]:
            return savefig(figure, fname, *args, **kwargs)
        _replace_atomically(lambda temporary: savefig(figure, temporary, *args, **kwargs),
                            os.fspath(fname))

    atomic_savefig.veridaneprobe_atomic = True
    return atomic_savefig


def _install_atomic_savefig():
    import matplotlib.figure
    if not getattr(matplotlib.figure.Figure.savefig, 'veridaneprobe_atomic', False):
        matplotlib.figure.Figure.savefig = _atomic_savefig(matplotlib.figure.Figure.savefig)


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
    # pyplot.savefig saves through Figure.savefig, so this covers both.
    _install_atomic_savefig()
