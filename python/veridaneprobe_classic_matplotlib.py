"""Gives every Python 3 program the classic matplotlib API of veridaneprobe's saved plot scripts.

The saved scripts call matplotlib.mlab.csv2rec and pyplot.hold, which current matplotlib no
longer has. veridaneprobe-classic-matplotlib.pth, installed into a Python site directory, imports
this module when Python starts. Start-up stays cheap: nothing of matplotlib or numpy is imported
here. The module only registers an import hook that waits for matplotlib.mlab and
matplotlib.pyplot to be imported and then adds csv2rec and hold from veridaneprobe_compat,
each only where matplotlib lacks it. Removing the .pth file switches the hook off.
"""

import sys


def _add_csv2rec(mlab):
    if not hasattr(mlab, 'csv2rec'):
        from veridaneprobe_compat import csv2rec
        mlab.csv2rec = csv2rec


def _add_hold(pyplot):
    if not hasattr(pyplot, 'hold'):
        from veridaneprobe_compat import hold
        pyplot.hold = hold


_ADDITIONS = {'matplotlib.mlab': _add_csv2rec, 'matplotlib.pyplot': _add_hold}


class _AddingLoader:
    """Runs the real loader, then adds the classic functions to the fresh module."""

    def __init__(self, loader, add):
        self._loader = loader
        self._add = add

    def create_module(self, spec):
        return self._loader.create_module(spec)

    def exec_module(self, module):
        self._loader.exec_module(module)
        self._add(module)

    def __getattr__(self, name):
        return getattr(self._loader, name)


class ClassicMatplotlibFinder:
    """A meta path finder that lets the other finders find the two modules and wraps their
    loaders; every other import passes by untouched."""

    def find_spec(self, fullname, path, target=None):
        add = _ADDITIONS.get(fullname)
        if add is None:
            return None
        for finder in sys.meta_path:
            find_spec = getattr(finder, 'find_spec', None)
            if finder is self or find_spec is None:
                continue
            spec = find_spec(fullname, path, target)
            if spec is None:
                continue
            if spec.loader is not None and hasattr(spec.loader, 'exec_module'):
                spec.loader = _AddingLoader(spec.loader, add)
            return spec
        return None


def register():
    """Puts the finder first on the meta path, once, however often the .pth file is read."""
    if not any(type(finder).__name__ == ClassicMatplotlibFinder.__name__
               for finder in sys.meta_path):
        sys.meta_path.insert(0, ClassicMatplotlibFinder())


register()
