"""The classic matplotlib API that veridaneprobe's plot scripts use, on current matplotlib.

The scripts call matplotlib.mlab.csv2rec and pyplot.hold, which current matplotlib no longer
has. install() supplies them where they are missing, so the scripts run unchanged, both inside
veridaneprobe and by hand through veridaneprobe-plot.
"""

import os
import re
import sys
import warnings

import numpy as np


def _column_names(header):
    return [name.strip().lower().replace(' ', '_') for name in header.split(',')]


def _loadtxt(fname, dtype, skiprows, comments, delimiter, usecols=None):
    """numpy's C reader: a million rows in well under a second. For integer types a value that
    is not written as an integer (1.0, 1e3, beyond the type's range) raises ValueError, where
    numpy would otherwise convert it through a float with only a deprecation warning."""
    with warnings.catch_warnings():
        warnings.simplefilter('error', DeprecationWarning)
        # A header without rows is an empty series, which the plot shows as such.
        warnings.filterwarnings('ignore', 'loadtxt: input contained no data')
        return np.loadtxt(fname, dtype=dtype, delimiter=delimiter, skiprows=skiprows,
                          comments=comments, usecols=usecols,
                          ndmin=1 if isinstance(usecols, int) or isinstance(dtype, list) else 2)


def _integer_column(fname, column, skiprows, comments, delimiter):
    """The column's exact integer values, or None when some value is not written as an
    integer. Integers beyond int64 but within uint64 (nanosecond timestamps at or above 2^63)
    keep their exact value."""
    for dtype in (np.int64, np.uint64):
        try:
            return _loadtxt(fname, dtype, skiprows, comments, delimiter, usecols=column)
        except (ValueError, OverflowError):
            continue
    return None


def _columns_guessed_wrong(fname, types, skiprows, comments, delimiter):
    """The columns read as integers that hold a value not written as one, from the first row
    with such a value: the reading stops there, so the cost follows that row's position, not
    the file's length. Empty when no such row explains why the file does not read."""
    integral = [index for index, kind in enumerate(types) if kind == np.int64]
    with open(fname, 'r') as stream:
        for _ in range(skiprows):
            stream.readline()
        for line in stream:
            if comments and comments in line:
                line = line.split(comments)[0]
            fields = line.split(delimiter)
            if len(fields) != len(types):
                if not line.strip():
                    continue
                return []
            wrong = [index for index in integral if not _is_integer(fields[index])]
            if wrong:
                return wrong
    return []


_INTEGER = re.compile(r'\s*[+-]?[0-9]+\s*')


def _is_integer(field):
    return _INTEGER.fullmatch(field) is not None


def _columns_as_first_row(fname, first_row, skiprows, comments, delimiter):
    """One pass for the common mixed file, a statistic's: each column read as an integer
    column when the first row writes it as an integer, else as a float column. A column the
    guess got wrong (a tau of 1e+05 below integer ones) shows in the first row that does not
    read; it turns float and the reading starts again, so such a file costs one more pass, not
    one per column. None when a row fails for another reason (a value beyond int64), so the
    general reading decides; when the guess holds, the general reading gives the same columns."""
    fields = first_row.split(delimiter)
    if not first_row or (comments and comments in first_row):
        return None
    types = [np.int64 if _is_integer(field) else np.float64 for field in fields]
    if np.float64 not in types:
        return None
    while True:
        try:
            values = _loadtxt(fname, [('f%d' % index, kind) for index, kind in enumerate(types)],
                              skiprows, comments, delimiter)
            return [values['f%d' % index] for index in range(len(types))]
        except Exception:
            pass
        wrong = _columns_guessed_wrong(fname, types, skiprows, comments, delimiter)
        if not wrong:
            return None
        for index in wrong:
            types[index] = np.float64


def _columns(fname, count, skiprows, comments, delimiter, first_row=''):
    try:
        # The common large file, a time error series, holds only integers: one pass.
        values = _loadtxt(fname, np.int64, skiprows, comments, delimiter)
        if values.size > 0:
            return [values[:, index] for index in range(values.shape[1])]
    except (ValueError, OverflowError):
        pass
    columns = _columns_as_first_row(fname, first_row, skiprows, comments, delimiter)
    if columns is not None:
        return columns
    values = _loadtxt(fname, np.float64, skiprows, comments, delimiter)
    if values.size == 0:
        return [np.empty(0) for _ in range(count)]
    columns = [values[:, index] for index in range(values.shape[1])]
    # Only columns whose values are all whole numbers are read again, as integers, so that
    # their text decides (1.0 stays a float) and large timestamps keep every digit.
    whole = [index for index, column in enumerate(columns)
             if np.all(np.isfinite(column)) and np.all(column == np.trunc(column))]
    if whole:
        try:
            integers = _loadtxt(fname, np.int64, skiprows, comments, delimiter, usecols=whole)
            for position, index in enumerate(whole):
                columns[index] = integers[:, position]
            return columns
        except (ValueError, OverflowError):
            pass
    for index in whole:
        integers = _integer_column(fname, index, skiprows, comments, delimiter)
        if integers is not None:
            columns[index] = integers
    return columns


# The last file read and its records: the tool draws each CSV twice in a row, once to PNG and
# once to PDF, and the second read then costs a copy.
_last_read = (None, None)

# Records handed over by the program that has just written a CSV, by the file's absolute path:
# the rows its figure draws, so that a long result is not read back from text to be drawn.
_provided = {}


def provide_records(fname, columns):
    """Makes csv2rec(fname) give these records until they are withdrawn: columns is a list of
    (name, bytes of native int64 or float64 values, whether the values are integers)."""
    rows = np.empty(len(columns[0][1]) // 8 if columns else 0,
                    dtype=[(name, np.int64 if integral else np.float64)
                           for name, _, integral in columns])
    for name, data, integral in columns:
        rows[name] = np.frombuffer(data, dtype=np.int64 if integral else np.float64)
    _provided[os.path.abspath(fname)] = rows.view(np.recarray)


def withdraw_records(fname):
    _provided.pop(os.path.abspath(fname), None)


def _beside_script(fname):
    """A saved script finds its CSV with os.path.split(sys.argv[0])[0] + '/' + name. Started by
    a bare file name (python3 PlotADEV.py), the directory part is empty and the path points into
    the root directory, although the script, and so its CSV, lies in the current directory."""
    argv = getattr(sys, 'argv', None)  # an embedding program may leave it unset
    started_by_bare_name = bool(argv) and os.path.split(argv[0])[0] == ''
    if (started_by_bare_name and isinstance(fname, str) and os.path.dirname(fname) == '/'
            and not os.path.exists(fname)):
        return fname[1:]
    return fname


def csv2rec(fname, comments='#', skiprows=0, checkrows=0, delimiter=',', **ignored):
    """Reads a CSV with a header row into a record array whose field names are the header's
    names, lower-cased, with blanks turned into underscores. Like the classic function, a
    column is an integer column only when every one of its values is an integer; otherwise it
    is a float column."""
    global _last_read
    provided = _provided.get(os.path.abspath(fname)) if isinstance(fname, str) else None
    if provided is not None:
        return provided.copy()
    fname = _beside_script(fname)
    status = os.stat(fname)
    key = (os.path.abspath(fname), status.st_ino, status.st_size, status.st_mtime_ns, comments,
           skiprows, delimiter)
    if _last_read[0] == key:
        return _last_read[1].copy()
    with open(fname, 'r') as stream:
        for _ in range(skiprows):
            stream.readline()
        names = _column_names(stream.readline().rstrip('\r\n'))
        first_row = stream.readline().rstrip('\r\n')
    columns = _columns(fname, len(names), skiprows + 1, comments, delimiter, first_row)
    rows = np.empty(len(columns[0]) if columns else 0,
                    dtype=[(name, column.dtype) for name, column in zip(names, columns)])
    for name, column in zip(names, columns):
        rows[name] = column
    records = rows.view(np.recarray)
    _last_read = (key, records)
    return records.copy()


def hold(*args, **kwargs):
    """Figures always hold their contents on current matplotlib."""


def _replace_atomically(save, path):
    """Calls save with a temporary path beside path, which keeps path's extension (it chooses
    the file type), then renames the temporary file over path: a failed save (a full disk)
    leaves the earlier file as it was and removes the temporary one."""
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


def _install_fast_png():
    """PNGs compressed at zlib's fastest level: about a quarter larger, and a twelfth of a
    second less for each plot."""
    import functools
    from matplotlib.backends.backend_agg import FigureCanvasAgg
    print_png = FigureCanvasAgg.print_png
    if getattr(print_png, 'veridaneprobe_fast', False):
        return

    @functools.wraps(print_png)
    def fast_print_png(canvas, *args, pil_kwargs=None, **kwargs):
        pil_kwargs = dict(pil_kwargs or {})
        pil_kwargs.setdefault('compress_level', 1)
        return print_png(canvas, *args, pil_kwargs=pil_kwargs, **kwargs)

    fast_print_png.veridaneprobe_fast = True
    FigureCanvasAgg.print_png = fast_print_png


def _read_fonts_from_memory():
    """FreeType reads a font through the Python file object that matplotlib's ft2font opens for
    it, with a seek and a read system call for almost every glyph (tens of thousands in a run).
    ft2font opens the file with the built-in open; while a font is being made, that open gives
    font files as in-memory copies, read from disk once."""
    import builtins
    import functools
    import io
    from matplotlib import font_manager
    make = getattr(font_manager, '_get_font', None)
    if not hasattr(make, '__wrapped__') or getattr(make, 'veridaneprobe_memory', False):
        return
    contents = {}
    disk_open = builtins.open

    def open_in_memory(file, mode='r', *args, **kwargs):
        if mode != 'rb' or args or kwargs or not isinstance(file, (str, bytes, os.PathLike)):
            return disk_open(file, mode, *args, **kwargs)
        if file not in contents:
            with disk_open(file, 'rb') as stream:
                contents[file] = stream.read()
        memory = io.BytesIO(contents[file])
        memory.name = file  # what ft2font reports as the font's file name
        return memory

    @functools.lru_cache(64)
    def get_font(*args, **kwargs):
        builtins.open = open_in_memory
        try:
            return make.__wrapped__(*args, **kwargs)
        finally:
            builtins.open = disk_open

    get_font.veridaneprobe_memory = True
    font_manager._get_font = get_font
    # Fonts cannot be shared with a forked child, as matplotlib's own cache knows.
    if hasattr(os, 'register_at_fork'):
        os.register_at_fork(after_in_child=get_font.cache_clear)


def _import_font_subsetter_lazily():
    """matplotlib's PDF backend imports fontTools.subset when it is loaded, a tenth of a second,
    but needs it only to embed TrueType fonts, which the plots' default Type 3 fonts are not:
    the module is loaded when first used instead."""
    import importlib.util
    if 'fontTools.subset' in sys.modules:
        return
    try:
        import fontTools
    except ImportError:
        return
    spec = importlib.util.find_spec('fontTools.subset')
    if spec is None or spec.loader is None:
        return
    spec.loader = importlib.util.LazyLoader(spec.loader)
    module = importlib.util.module_from_spec(spec)
    sys.modules['fontTools.subset'] = module
    spec.loader.exec_module(module)
    # As the package's attribute, 'from fontTools import subset' takes it without looking at it
    # (the import system's look at a module in sys.modules would load it).
    fontTools.subset = module


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
    _import_font_subsetter_lazily()
    _install_fast_png()
    _read_fonts_from_memory()
    # What start-up made (modules, classes, functions: most of the interpreter's objects) leaves
    # the cycle collector's generations, so its full passes while plotting walk only what the
    # plots make.
    import gc
    gc.freeze()
